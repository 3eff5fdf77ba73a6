// Loads a WebSocket server with access points and prints what came of it, one JSON object on one line. Before it
// measures messages it prints "open" and waits for a line, so that whoever started it can let the server come to rest.
//
//   ap_load --port P --sessions N silent     opens the sessions, and holds them until standard input ends
//   …       associations --seconds S [--rate R]   small messages: one outstanding on each session, or R a second over
//   all
//                                             sessions in turn, whose latency counts from when a message was due
//   …       scans --seconds S --heard H      answers to a scan, one outstanding on each session, each followed by a
//   small
//                                             message whose acknowledgement says that both were taken. The last session
//                                             never answers, so that the server waits on
//   …       cycle                            answers modes and scans until every session has had a plan
//
// With --echo the server says back what it is told: nobody subscribes, and each answer must be as long as its message.
// Otherwise every session subscribes first, as an access point of its own, N divided into --domains domains named
// "bench-0", "bench-1" …
#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "WireClient.h"
#include "access_point.h"

namespace {

using zal::bench::AccessPoint;
using zal::bench::Frame;
using zal::bench::now_seconds;
using zal::bench::text_frame;
using zal::bench::WireClient;

constexpr double patience = 120;

struct Options {
  int port = 0;
  std::size_t sessions = 1;
  std::size_t domains = 1;
  bool echo = false;
  double seconds = 3;
  double rate = 0;
  std::size_t heard = 300;
};

bool is_command(std::string_view text, const char* command) {
  return text.find(std::string("\"cmd\":\"") + command + "\"") != std::string_view::npos;
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
    measure([this] { client_.serve(10); });
  }

  void run_scans() {
    if (!client_.serve_until([this] { return scans_asked_ == client_.size(); }, patience)) {
      throw std::runtime_error("no scan was asked for");
    }
    closed_ = true;
    prepare(true);
    for (std::size_t i = 0; i + 1 < client_.size(); ++i) say(i, now_seconds());
    measure([this] { client_.serve(10); });
  }

  void run_at_rate() {
    prepare(false);
    std::size_t next = 0;
    double due = now_seconds();
    measure([&] {
      for (const double now = now_seconds(); due <= now; due += 1 / options_.rate) {
        say(next, due);
        next = (next + 1) % client_.size();
      }
      client_.serve(0);
    });
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
        "\"max_us\":%.1f,\"bytes_sent\":%zu,\"modes_asked\":%zu,\"scans_asked\":%zu,\"planned\":%zu,\"cycle_s\":%.3f,"
        "\"ended\":%zu}\n",
        client_.size(), opened, measured_, seconds_, us * quantile(latencies_, 0.5), us * quantile(latencies_, 0.99),
        us * quantile(latencies_, 1), bytes_measured_, modes_asked_, scans_asked_, planned_, cycle, client_.ended());
    std::fflush(stdout);
  }

 private:
  struct State {
    bool subscribed = false;
    bool planned = false;
    bool scanned = false;
    std::deque<double> outstanding;  // when each was due
    std::vector<Frame> frames;       // what it says at a time
  };

  void subscribe() {
    for (std::size_t i = 0; i < client_.size(); ++i) client_.send(i, text_frame(aps_[i].subscription()));
    if (!client_.serve_until([this] { return subscribed_ == client_.size(); }, patience)) {
      throw std::runtime_error(std::to_string(subscribed_) + " of " + std::to_string(client_.size()) + " subscribed");
    }
  }

  void prepare(bool scans) {
    for (std::size_t i = 0; i < client_.size(); ++i) {
      if (scans) states_[i].frames.push_back(text_frame(aps_[i].scan_answer(options_.heard)));
      const std::string association = aps_[i].association(0);
      echoed_size_ = association.size();
      states_[i].frames.push_back(text_frame(association));
    }
  }

  void say(std::size_t session, double due) {
    State& state = states_[session];
    state.outstanding.push_back(due);
    for (const Frame& frame : state.frames) client_.send(session, frame);
  }

  template <class Pass>
  void measure(Pass pass) {
    const double warm = now_seconds() + std::min(1.0, options_.seconds / 3);
    while (now_seconds() < warm) pass();
    records_ = true;
    const double began = now_seconds();
    while (now_seconds() < began + options_.seconds) pass();
    seconds_ = now_seconds() - began;
    records_ = false;
    if (client_.ended() > 0) throw std::runtime_error(std::to_string(client_.ended()) + " sessions were ended");
  }

  void take(std::size_t session, std::string_view text) {
    if (options_.echo ? text.size() == echoed_size_ : is_command(text, "rrm-client-assoc-ack")) {
      take_answer(session);
    } else if (options_.echo) {
      throw std::runtime_error("an echo of another length");
    } else if (is_command(text, "subscribe-response")) {
      take_subscription(session, text);
    } else if (is_command(text, "rrm-request-mode")) {
      ++modes_asked_;
      client_.send(session, text_frame(aps_[session].modes()));
    } else if (is_command(text, "rrm-update")) {
      ++scans_asked_;
      states_[session].scanned = true;
      if (cycles_) client_.send(session, text_frame(aps_[session].scan_answer(options_.heard)));
    } else if (is_command(text, "rrm-info")) {
      State& state = states_[session];
      if (state.scanned && !std::exchange(state.planned, true)) ++planned_;
    }
  }

  void take_subscription(std::size_t session, std::string_view text) {
    if (text.find("\"success\"") == std::string_view::npos) throw std::runtime_error("refused: " + std::string(text));
    if (!std::exchange(states_[session].subscribed, true)) ++subscribed_;
  }

  void take_answer(std::size_t session) {
    State& state = states_[session];
    if (state.outstanding.empty()) throw std::runtime_error("an answer that nobody asked for");
    const double now = now_seconds();
    if (records_) {
      ++measured_;
      for (const Frame& frame : state.frames) bytes_measured_ += frame->size();
      latencies_.push_back(static_cast<float>(now - state.outstanding.front()));
    }
    state.outstanding.pop_front();
    if (closed_) say(session, now);
  }

  const Options options_;
  WireClient client_;
  std::vector<AccessPoint> aps_;
  std::vector<State> states_;
  std::size_t echoed_size_ = 0;
  bool closed_ = false;
  bool records_ = false;
  bool cycles_ = false;
  double seconds_ = 0;
  std::size_t subscribed_ = 0;
  std::size_t modes_asked_ = 0;
  std::size_t scans_asked_ = 0;
  std::size_t planned_ = 0;
  std::size_t measured_ = 0;
  std::size_t bytes_measured_ = 0;
  std::vector<float> latencies_;
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
  app.add_option("--heard", options.heard, "entries of an answer to a scan")->capture_default_str();
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
