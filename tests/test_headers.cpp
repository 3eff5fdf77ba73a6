// Nothing: the precompiled headers of the test programs need a target, and a target needs a source.
