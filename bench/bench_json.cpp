// How fast the server reads and writes JSON, beside the library that somebody would pick instead where it is installed.
//
// Reading is what a message costs at its arrival: text to document in an arena of its own, and its end. Writing is the
// text of a document that stands. The documents imitate the traffic of a site in four sizes, see ap_corpus.h. Before
// any time counts, each side must give back every document's text to the byte. The texts are ASCII; that an object has
// each key once only ours looks after, and neither has to look whether bytes are UTF-8.
//
// Compiled with ZAL_BENCH_DEFAULT_HEAP, the large documents are read with the heap as a process finds it.
//
// All runs are repeated in random order, so that a disturbed machine disturbs both sides; the table at the end compares
// medians.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Comparison.h"
#include "Measures.h"
#include "ap_corpus.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

#ifdef ZAL_BENCH_BOOST_JSON
#include <boost/json.hpp>
#endif

// Everything that asks the heap for memory is counted; the linker leads the calls here.
static std::size_t allocations = 0;

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* memory, std::size_t size);
void* __wrap_malloc(std::size_t size) {
  ++allocations;
  return __real_malloc(size);
}
void* __wrap_calloc(std::size_t count, std::size_t size) {
  ++allocations;
  return __real_calloc(count, size);
}
void* __wrap_realloc(void* memory, std::size_t size) {
  ++allocations;
  return __real_realloc(memory, size);
}
}

void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return std::malloc(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using zal::bench::Document;

constexpr std::size_t arena_block_size = 8192;

// One library's way to do both.
struct Ours {
  static constexpr const char* name = "yajson";
  using Tree = rrm::JsonWriter;

  static void read(const std::string& text) {
    const rrm::JsonReader reader(text.c_str(), arena_block_size);
    benchmark::DoNotOptimize(reader.empty());
  }
  static Tree tree(const std::string& text) {
    Tree tree;
    tree.add_members(rrm::JsonReader(text.c_str(), arena_block_size));
    return tree;
  }
  static std::string write(const Tree& tree) { return tree.to_string(); }
  static void write_only(const Tree& tree) { benchmark::DoNotOptimize(tree.to_string()); }
};

#ifdef ZAL_BENCH_BOOST_JSON
struct Boost {
  static constexpr const char* name = "Boost.JSON";
  using Tree = boost::json::value;

  static void read(const std::string& text) {
    boost::json::monotonic_resource arena(arena_block_size);
    boost::json::parse_options options;
    options.allow_invalid_utf8 = true;
    const boost::json::value value = boost::json::parse(text, &arena, options);
    benchmark::DoNotOptimize(&value);
  }
  static Tree tree(const std::string& text) { return boost::json::parse(text); }
  static std::string write(const Tree& tree) { return boost::json::serialize(tree); }
  static void write_only(const Tree& tree) { benchmark::DoNotOptimize(boost::json::serialize(tree)); }
};
#endif

#ifdef ZAL_BENCH_DEFAULT_HEAP
constexpr bool keeps_freed_memory = false;
constexpr const char* heap = ", default heap";
#else
constexpr bool keeps_freed_memory = true;
constexpr const char* heap = "";
#endif

template <class Library>
void add_benchmarks(const Document& document) {
  const auto run_name = [&](const char* what) {
    return std::string(what) + "/" + document.name + heap + "/" + Library::name;
  };
  const auto count_bytes = [&document](benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.text.size()));
  };
  const auto tree = std::make_shared<typename Library::Tree>(Library::tree(document.text));
  if (Library::write(*tree) != document.text) {
    std::fprintf(stderr, "%s does not give back the document \"%s\"\n", Library::name, document.name);
    std::exit(1);
  }
  benchmark::RegisterBenchmark(run_name("JSON read").c_str(), [&document, count_bytes](benchmark::State& state) {
    for (auto _ : state) Library::read(document.text);
    count_bytes(state);
  });
  if (!keeps_freed_memory) return;
  benchmark::RegisterBenchmark(run_name("JSON write").c_str(), [tree, count_bytes](benchmark::State& state) {
    for (auto _ : state) Library::write_only(*tree);
    count_bytes(state);
  });
}

// Parsing a message, and its end, with everything that asks the heap for memory.
std::size_t allocations_of(const Document& document) {
  const std::size_t before = allocations;
  Ours::read(document.text);
  return allocations - before;
}

void tell_allocations(zal::bench::Measures& measures, const std::vector<Document>& documents) {
  for (const Document& document : documents) {
    const bool is_small = document.name == documents.front().name;
    measures.add({std::string("allocations of a parsed message/") + document.name,
                  static_cast<double>(allocations_of(document)),
                  "",
                  {},
                  is_small ? "4" : ""});
  }
}

// Neither library pays for the kernel's pages: by itself the heap gives back whatever exceeds twice its largest block,
// and blocks that double in size add up to just that, so that some documents would fault in all of their pages anew.
void keep_freed_memory() {
  constexpr int plenty = 256 << 20;
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, plenty);
}

}  // namespace

int main(int argc, char** argv) {
  if (keeps_freed_memory) keep_freed_memory();
  zal::bench::Measures measures(argc, argv);
  std::vector<Document> documents = zal::bench::ap_corpus();
  if (!keeps_freed_memory) documents.erase(documents.begin(), documents.end() - 2);
  std::map<std::string, std::string> goals;
  for (const Document& document : documents) {
    std::printf("%-8s %8zu bytes\n", document.name, document.text.size());
    add_benchmarks<Ours>(document);
#ifdef ZAL_BENCH_BOOST_JSON
    add_benchmarks<Boost>(document);
#endif
    goals[std::string("JSON read/") + document.name] = "1.3, never below 1";
    goals[std::string("JSON write/") + document.name] = "1.0";
  }
  if (keeps_freed_memory) tell_allocations(measures, documents);
  const int status = zal::bench::Comparison(measures, Ours::name, "Boost.JSON", goals).run(argc, argv);
  measures.write();
  return status;
}
