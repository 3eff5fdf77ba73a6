// How fast the server reads and writes JSON, beside the library that somebody would pick instead where it is installed.
//
// Reading is what a message costs at its arrival: text to document in an arena of its own, and its end. Writing is the
// text of a document that stands. The documents imitate the traffic of a site in four sizes, see ap_corpus.h. Before
// any time counts, each side must give back every document's text to the byte.
//
// All runs are repeated in random order, so that a disturbed machine disturbs both sides; the table at the end compares
// medians.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ap_corpus.h"
#include "json/JsonReader.h"

#ifdef ZAL_BENCH_BOOST_JSON
#include <boost/json.hpp>
#endif

namespace {

using zal::bench::Document;

constexpr std::size_t arena_block_size = 8192;

// One library's way to do both.
struct Ours {
  static constexpr const char* name = "yajson";
  using Tree = rrm::JsonReader;

  static void read(const std::string& text) {
    const rrm::JsonReader reader(text.c_str(), arena_block_size);
    benchmark::DoNotOptimize(reader.empty());
  }
  static Tree tree(const std::string& text) { return {text.c_str(), arena_block_size}; }
  static std::string write(const Tree& tree) { return tree.to_string(); }
  static void write_only(const Tree& tree) { benchmark::DoNotOptimize(tree.to_string()); }
};

#ifdef ZAL_BENCH_BOOST_JSON
struct Boost {
  static constexpr const char* name = "boost";
  using Tree = boost::json::value;

  static void read(const std::string& text) {
    boost::json::monotonic_resource arena(arena_block_size);
    const boost::json::value value = boost::json::parse(text, &arena);
    benchmark::DoNotOptimize(&value);
  }
  static Tree tree(const std::string& text) { return boost::json::parse(text); }
  static std::string write(const Tree& tree) { return boost::json::serialize(tree); }
  static void write_only(const Tree& tree) { benchmark::DoNotOptimize(boost::json::serialize(tree)); }
};
#endif

template <class Library>
void add_benchmarks(const Document& document) {
  const auto run_name = [&](const char* what) { return std::string(what) + "/" + document.name + "/" + Library::name; };
  const auto count_bytes = [&document](benchmark::State& state) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document.text.size()));
  };
  const auto tree = std::make_shared<typename Library::Tree>(Library::tree(document.text));
  if (Library::write(*tree) != document.text) {
    std::fprintf(stderr, "%s does not give back the document \"%s\"\n", Library::name, document.name);
    std::exit(1);
  }
  benchmark::RegisterBenchmark(run_name("read").c_str(), [&document, count_bytes](benchmark::State& state) {
    for (auto _ : state) Library::read(document.text);
    count_bytes(state);
  });
  benchmark::RegisterBenchmark(run_name("write").c_str(), [tree, count_bytes](benchmark::State& state) {
    for (auto _ : state) Library::write_only(*tree);
    count_bytes(state);
  });
}

// Prints nothing but the comparison.
class ComparisonReporter final : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override {
    PrintBasicContext(&GetErrorStream(), context);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string name = run.run_name.function_name;
      const std::size_t slash = name.rfind('/');
      rates_[name.substr(0, slash)][name.substr(slash + 1)].push_back(run.counters.at("bytes_per_second") / 1e6);
    }
  }

  void Finalize() override {
    std::printf("%-16s %12s %12s %8s\n", "MB/s of CPU", "yajson", "boost mono", "ratio");
    for (auto& [what, by_library] : rates_) {
      const double ours = median(by_library["yajson"]);
      const double theirs = median(by_library["boost"]);
      std::printf("%-16s %12.0f %12.0f %8.2f\n", what.c_str(), ours, theirs, theirs > 0 ? ours / theirs : 0);
    }
  }

 private:
  static double median(std::vector<double>& values) {
    if (values.empty()) return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
  }

  std::map<std::string, std::map<std::string, std::vector<double>>> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> defaults{argv[0], "--benchmark_repetitions=11", "--benchmark_min_time=0.05",
                                    "--benchmark_enable_random_interleaving=true"};
  std::vector<char*> arguments;
  for (std::string& argument : defaults) arguments.push_back(argument.data());
  arguments.insert(arguments.end(), argv + 1, argv + argc);
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;

  const std::vector<Document> documents = zal::bench::ap_corpus();
  for (const Document& document : documents) {
    std::printf("%-8s %8zu bytes\n", document.name, document.text.size());
    add_benchmarks<Ours>(document);
#ifdef ZAL_BENCH_BOOST_JSON
    add_benchmarks<Boost>(document);
#endif
  }
  ComparisonReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
}
