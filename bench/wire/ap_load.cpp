// Loads a WebSocket server with access points and prints what came of it, one JSON object on one line. Before it
// measures messages it prints "open" and waits for a line, so that whoever started it can let the server come to rest.
//
//   ap_load --port P --sessions N silent     opens the sessions and answers pings
//   …  associations --seconds S [--rate R]   small messages: one outstanding on each session, or R a second over all
//                                            sessions in turn, whose latency counts from when a message was due
//   …  scans --seconds S --heard H           answers to a scan, one outstanding on each session, each followed by a
//                                            small message whose acknowledgement says that both were taken. The last
//                                            session never answers, so that the server waits on
//   …  cycle                                 answers modes and scans until every session has had a plan
//
// With --echo the server says back what it is told, and nobody subscribes. Otherwise every session subscribes first, as
// an access point of its own, N divided into --domains domains named "bench-0", "bench-1" … What was asked must be
// answered, each by what belongs to it.
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <deque>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "WireClient.h"
#include "access_point.h"
#include "json/JsonReader.h"

namespace {

using zal::bench::AccessPoint;
using zal::bench::Frame;
using zal::bench::now_seconds;
using zal::bench::text_frame;
using zal::bench::WireClient;

constexpr double patience = 300;

struct Options {
  int port = 0;
  std::size_t sessions = 1;
  std::size_t domains = 1;
  bool echo = false;
  double seconds = 3;
  double rate = 0;
  std::size_t rounds = 1;
  std::size_t heard = 300;
};

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

constexpr std::string_view acknowledgement = R"("cmd":"rrm-client-assoc-ack")";

// CPU that this process has used, in seconds.
double own_cpu_seconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// MB/s of the daemon's own parser on one text.
double parsing_rate(const std::string& text) {
  constexpr std::size_t arena_block_size = 8192;
  std::size_t bytes = 0;
  const double began = own_cpu_seconds();
  while (own_cpu_seconds() < began + 0.5) {
    const rrm::JsonReader reader(text.c_str(), arena_block_size);
    if (reader.empty()) throw std::runtime_error("the answer to a scan is no JSON");
    bytes += text.size();
  }
  return static_cast<double>(bytes) / (own_cpu_seconds() - began) / 1e6;
}

// Seconds; the largest value of a part that large, in ascending order.
double quantile(const std::vector<float>& sorted, double part) {
  if (sorted.empty()) return 0;
  const auto place = static_cast<std::size_t>(std::ceil(part * static_cast<double>(sorted.size()))) - 1;
  return static_cast<double>(sorted[std::min(place, sorted.size() - 1)]);
}

class Load {
 public:
  explicit Load(const Options& options)
      : options_(options), client_(options.port, options.sessions, [this](std::size_t session, std::string_view text) {
          take(session, text);
        }) {
    const std::size_t per_domain = (options.sessions + options.domains - 1) / options.domains;
    for (std::size_t i = 0; i < options.sessions; ++i) {
      aps_.emplace_back(i, "bench-" + std::to_string(i / per_domain));
    }
    states_.resize(options.sessions);
  }

  // Opens the sessions; seconds until all were served.
  double open() {
    const double began = now_seconds();
    client_.open_all(patience);
    spoke_.assign(client_.size(), now_seconds());
    if (!options_.echo) subscribe();
    return now_seconds() - began;
  }

  // Serves until there is a line to read, or the end of input.
  void hold() {
    for (char byte = 0; byte != '\n';) {
      client_.serve(100);
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (::poll(&input, 1, 0) != 0 && ::read(STDIN_FILENO, &byte, 1) != 1) return;
    }
  }

  void wait_for_start() {
    std::puts("open");
    std::fflush(stdout);
    hold();
  }

  // One message outstanding on each session.
  void run_closed() {
    closed_ = true;
    prepare(false);
    for (std::size_t i = 0; i < client_.size(); ++i) say(i, now_seconds());
    measure(std::min(1.0, options_.seconds / 3), [this] { client_.serve(10); });
  }

  void run_scans() {
    if (!client_.serve_until([this] { return scans_asked_ == client_.size(); }, patience)) {
      throw std::runtime_error("no scan was asked for");
    }
    closed_ = true;
    prepare(true);
    for (std::size_t i = 0; i + 1 < client_.size(); ++i) say(i, now_seconds());
    measure(std::min(1.0, options_.seconds / 3), [this] { client_.serve(10); });
    parsing_rate_ = parsing_rate(aps_.front().scan_answer(options_.rounds, options_.heard));
  }

  void run_at_rate() {
    prepare(false);
    std::size_t next = 0;
    double due = now_seconds();
    // By then the server has seen how much comes, and balances no more where that is too much.
    constexpr double settled = 3;
    measure(settled, [&] {
      for (const double now = now_seconds(); due <= now; due += 1 / options_.rate) {
        say(next, due);
        next = (next + 1) % client_.size();
      }
      client_.serve(0);
    });
  }

  // Silent but for the answers to pings, until there is a line to read.
  void keep_silent() {
    client_.on_ping([this](std::size_t session) {
      longest_silence_ = std::max(longest_silence_, now_seconds() - std::exchange(spoke_[session], now_seconds()));
    });
    wait_for_start();
    for (const double spoke : spoke_) longest_silence_ = std::max(longest_silence_, now_seconds() - spoke);
    if (client_.ended() > 0) throw std::runtime_error(std::to_string(client_.ended()) + " sessions were ended");
  }

  // Seconds from the subscriptions until every session had a plan.
  double run_cycle() {
    cycles_ = true;
    const double began = now_seconds();
    const bool done = client_.serve_until([this] { return planned_ == client_.size(); }, patience);
    if (!done) {
      throw std::runtime_error(std::to_string(planned_) + " of " + std::to_string(client_.size()) +
                               " access points were told a plan");
    }
    return now_seconds() - began;
  }

  void print(double opened, double cycle) {
    std::sort(latencies_.begin(), latencies_.end());
    constexpr double us = 1e6;
    std::printf(
        "{\"sessions\":%zu,\"open_s\":%.3f,\"messages\":%zu,\"seconds\":%.3f,\"p50_us\":%.1f,\"p99_us\":%.1f,"
        "\"p99_of_second_us\":%.1f,"
        "\"max_us\":%.1f,\"bytes_sent\":%zu,\"modes_asked\":%zu,\"scans_asked\":%zu,\"planned\":%zu,\"cycle_s\":%.3f,"
        "\"ended\":%zu,\"longest_silence_s\":%.3f,"
        "\"own_cpu\":%.3f,\"parsing_mb_s\":%.1f}\n",
        client_.size(), opened, measured_, seconds_, us * quantile(latencies_, 0.5), us * quantile(latencies_, 0.99),
        us * median_p99_of_seconds(), us * quantile(latencies_, 1), bytes_measured_, modes_asked_, scans_asked_,
        planned_, cycle, client_.ended(), longest_silence_, own_cpu_, parsing_rate_);
    std::fflush(stdout);
  }

 private:
  struct State {
    std::string own;  // what an answer has in it that no other session's has
    bool subscribed = false;
    bool planned = false;
    bool scanned = false;
    std::deque<double> outstanding;  // when each was due
    std::vector<Frame> frames;       // what it says at a time
  };

  void subscribe() {
    for (std::size_t i = 0; i < client_.size(); ++i) {
      client_.send(i, text_frame(aps_[i].subscription()));
      spoke_[i] = now_seconds();
    }
    if (!client_.serve_until([this] { return subscribed_ == client_.size(); }, patience)) {
      throw std::runtime_error(std::to_string(subscribed_) + " of " + std::to_string(client_.size()) + " subscribed");
    }
  }

  void prepare(bool scans) {
    for (std::size_t i = 0; i < client_.size(); ++i) {
      if (scans) states_[i].frames.push_back(text_frame(aps_[i].scan_answer(options_.rounds, options_.heard)));
      const std::string association = aps_[i].association(0);
      states_[i].own = options_.echo ? association : aps_[i].client_address(0);
      states_[i].frames.push_back(text_frame(association));
    }
  }

  void say(std::size_t session, double due) {
    State& state = states_[session];
    state.outstanding.push_back(due);
    for (const Frame& frame : state.frames) client_.send(session, frame);
  }

  template <class Pass>
  void measure(double warming, Pass pass) {
    const double warm = now_seconds() + warming;
    while (now_seconds() < warm) pass();
    const double burnt = own_cpu_seconds();
    began_ = now_seconds();
    records_ = true;
    while (now_seconds() < began_ + options_.seconds) pass();
    records_ = false;
    seconds_ = now_seconds() - began_;
    own_cpu_ = (own_cpu_seconds() - burnt) / seconds_;
    closed_ = false;
    const bool drained = client_.serve_until(
        [this] {
          return std::all_of(states_.begin(), states_.end(), [](const State& one) { return one.outstanding.empty(); });
        },
        patience);
    if (!drained) throw std::runtime_error("messages were lost");
    if (client_.ended() > 0) throw std::runtime_error(std::to_string(client_.ended()) + " sessions were ended");
  }

  // A machine that stands still for a moment spoils one second, and not what is told of the others.
  double median_p99_of_seconds() {
    std::vector<float> all;
    for (std::vector<float>& second : latencies_of_second_) {
      std::sort(second.begin(), second.end());
      all.push_back(static_cast<float>(quantile(second, 0.99)));
    }
    std::sort(all.begin(), all.end());
    return quantile(all, 0.5);
  }

  void take(std::size_t session, std::string_view text) {
    if (options_.echo) {
      if (text != states_[session].own) throw std::runtime_error("an echo of something else");
      take_answer(session);
    } else if (contains(text, acknowledgement)) {
      if (!contains(text, states_[session].own)) throw std::runtime_error("another's acknowledgement");
      take_answer(session);
    } else if (contains(text, R"("cmd":"subscribe-response")")) {
      take_subscription(session, text);
    } else if (contains(text, R"("cmd":"rrm-request-mode")")) {
      ++modes_asked_;
      client_.send(session, text_frame(aps_[session].modes()));
    } else if (contains(text, R"("cmd":"rrm-update")")) {
      ++scans_asked_;
      states_[session].scanned = true;
      if (cycles_) client_.send(session, text_frame(aps_[session].scan_answer(options_.rounds, options_.heard)));
    } else if (contains(text, R"("cmd":"rrm-info")") && contains(text, R"("radios":)")) {  // lists alone are no plan
      State& state = states_[session];
      if (state.scanned && !std::exchange(state.planned, true)) ++planned_;
    }
  }

  void take_subscription(std::size_t session, std::string_view text) {
    if (!contains(text, "\"success\"")) throw std::runtime_error("refused: " + std::string(text));
    if (!std::exchange(states_[session].subscribed, true)) ++subscribed_;
  }

  void take_answer(std::size_t session) {
    State& state = states_[session];
    if (state.outstanding.empty()) throw std::runtime_error("an answer that nobody asked for");
    const double now = now_seconds();
    const double due = state.outstanding.front();
    state.outstanding.pop_front();
    if (records_) {
      ++measured_;
      for (const Frame& frame : state.frames) bytes_measured_ += frame->size();
    }
    if (began_ > 0 && due >= began_ && due < began_ + options_.seconds) record(due, now);
    if (closed_) say(session, now);
  }

  // Whenever it was answered, a message counts for the second in which it was due.
  void record(double due, double now) {
    const auto latency = static_cast<float>(now - due);
    const auto second = static_cast<std::size_t>(due - began_);
    latencies_.push_back(latency);
    if (second >= latencies_of_second_.size()) latencies_of_second_.resize(second + 1);
    latencies_of_second_[second].push_back(latency);
  }

  const Options options_;
  WireClient client_;
  std::vector<AccessPoint> aps_;
  std::vector<State> states_;
  bool closed_ = false;
  bool records_ = false;
  bool cycles_ = false;
  double began_ = 0;  // of the measured time, which lasts so many seconds
  double seconds_ = 0;
  double own_cpu_ = 0;       // of one CPU
  double parsing_rate_ = 0;  // MB/s
  std::size_t subscribed_ = 0;
  std::size_t modes_asked_ = 0;
  std::size_t scans_asked_ = 0;
  std::size_t planned_ = 0;
  std::size_t measured_ = 0;
  std::size_t bytes_measured_ = 0;
  std::vector<float> latencies_;
  std::vector<std::vector<float>> latencies_of_second_;
  std::vector<double> spoke_;   // when each session last said something
  double longest_silence_ = 0;  // seconds
};

void run(const std::string& what, const Options& options) {
  Load load(options);
  const double opened = load.open();
  double cycle = 0;
  if (what == "associations") {
    load.wait_for_start();
    options.rate > 0 ? load.run_at_rate() : load.run_closed();
  } else if (what == "scans") {
    load.run_scans();
  } else if (what == "silent") {
    load.keep_silent();
  } else if (what == "cycle") {
    cycle = load.run_cycle();
  }
  load.print(opened, cycle);
  load.hold();
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string what;
  CLI::App app{"Loads a WebSocket server with access points; holds the sessions until standard input ends."};
  app.add_option("--port", options.port)->required();
  app.add_option("--sessions", options.sessions)->check(CLI::Range(1, 60000))->capture_default_str();
  app.add_option("--domains", options.domains)->check(CLI::Range(1, 10000))->capture_default_str();
  app.add_flag("--echo", options.echo, "the server says back what it is told");
  app.add_option("--seconds", options.seconds, "how long is measured")->capture_default_str();
  app.add_option("--rate", options.rate, "messages a second over all sessions; without it as fast as they come back");
  app.add_option("--rounds", options.rounds, "rounds of an answer to a scan")->capture_default_str();
  app.add_option("--heard", options.heard, "entries of each round")->capture_default_str();
  app.add_option("WHAT", what)->required()->check(CLI::IsMember({"silent", "associations", "scans", "cycle"}));
  CLI11_PARSE(app, argc, argv);
  try {
    run(what, options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ap_load: %s\n", error.what());
    return 1;
  }
}
