// The documents that the JSON benchmarks work on: the same bytes on every machine and every run.
#pragma once

#include <string>
#include <vector>

namespace zal::bench {

struct Document {
  const char* name;
  std::string text;
};

// Compact texts with the keys, value lengths and number ranges of real traffic:
//   small   an association event                                      about 230 bytes
//   medium  a subscription of an AP with 3 radios of 8 VAPs           about 5 KB
//   large   a scan answer, 3 radios that each hear 200 BSSIDs         about 70 KB
//   domain  the picture of a whole domain, 50 APs and their hearing   about 2 MB
std::vector<Document> ap_corpus();

}  // namespace zal::bench
