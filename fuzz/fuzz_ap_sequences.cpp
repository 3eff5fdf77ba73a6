// What APs may say to a domain, in any order, while time passes, sessions end and operators have their way. The input
// is a script, a step a line; a change of one line leaves the others what they were:
//
//   m<ap><session><command>…   a message of an AP: what follows builds its radios and bends its fields (see `Message`)
//   j<session><text>           any text as a message
//   x<session>                 a session ends
//   t<length>  T<length>       time passes, second by second, or all at once just before the next step
//   c                          the optimisation's thread comes to its end
//   o  b                       an operator orders an optimisation, or the server a pause of the balancing
//   s<edits>                   an operator edits the domain's settings: the server makes it anew
//   g<edit>                    an operator edits the server's settings
//   r                          another server takes over, with the backup
//   q<ap>                      somebody asks how the domain and an AP stand
//
// After every step the domain is looked at from outside, and whatever it sent is read.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <semaphore>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "TpcDcaSubworker.h"
#include "core/QueueMessage.h"
#include "fuzz/address_claims.h"
#include "fuzz/fuzz.h"
#include "fuzz/message_reading.h"
#include "fuzz/offered_channels.h"
#include "fuzz/silence.h"
#include "fuzz/told_clients.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/mac_params.h"
#include "protocol/keys.h"
#include "support/capture.h"
#include "support/messages.h"
#include "support/recording_server.h"

namespace {

using rrm::ApEntry;
using rrm::ApMap;
using rrm::BaseSession;
using rrm::JsonReader;
using rrm::JsonWriter;
using rrm::MacAddr;
using rrm::Radio;
using rrm::RrmWorker;
using rrm::testing::MessageJson;
using rrm::testing::RadioJson;
using rrm::testing::RecordingServer;
using zal::fuzz::require;

constexpr std::size_t most_steps = 200;
constexpr std::int32_t most_seconds = 2000;

// A step's choices, character by character; what the line does not say is said by the fallback.
class Choices {
 public:
  explicit Choices(std::string_view text) : text_(text) {}

  bool any() const { return !text_.empty(); }
  char next(char fallback = '0') {
    if (text_.empty()) return fallback;
    const char choice = text_.front();
    text_.remove_prefix(1);
    return choice;
  }
  std::string_view rest() const { return text_; }

 private:
  std::string_view text_;
};

// '0' to '9', then letters of both cases, then whatever else there is.
std::size_t place_of(char choice) {
  if (choice >= '0' && choice <= '9') return static_cast<std::size_t>(choice - '0');
  if (choice >= 'a' && choice <= 'z') return static_cast<std::size_t>(choice - 'a') + 10;
  if (choice >= 'A' && choice <= 'Z') return static_cast<std::size_t>(choice - 'A') + 36;
  return static_cast<unsigned char>(choice);
}

template <class List>
const auto& pick(const List& list, char choice) {
  return list[place_of(choice) % std::size(list)];
}

// A member of an object, and what an input may make of it.
struct Field {
  const char* key;
  std::vector<const char*> values;
};

constexpr const char* largest = "2147483647";
constexpr const char* smallest = "-2147483648";
constexpr const char* beyond = "99999999999999999999";

const std::vector<Field> radio_fields = {
    {"id", {"0", "1", "2", "3", "-1", "\"1\"", "null", largest}},
    {"status", {"0", "1", "2", "-1", "\"1\"", "true", "null"}},
    {"channel", {"0", "1", "36", "37", "100", "165", "14", "233", "-1", largest, smallest, "\"36\"", "null"}},
    {"band", {"2", "5", "6", "0", "7", "-5", "\"5\"", "null"}},
    {"power", {"0", "5", "14", "20", "30", "-1", largest, smallest, "\"14\"", "[]"}},
    {"power-max", {"20", "0", "-1", "5", "30", largest, smallest, "{}"}},
    {"power-min", {"5", "0", "-1", "25", largest, smallest, "true"}},
    {"eirp", {"17", "0", "-1", largest, smallest, "\"17\""}},
    {"eirp-min", {"10", "0", "-1", "30", largest, smallest}},
    {"eirp-max", {"20", "0", "-1", "5", largest, smallest}},
    {"antenna-configuration",
     {R"({"antenna-gain":3,"cable-loss":1})", R"({"antenna-gain":2147483647,"cable-loss":-2147483648})",
      R"({"antenna-gain":-2147483648,"cable-loss":2147483647})", "{}", "[]", "3"}},
    {"bandwidth", {"20", "40", "80", "160", "320", "0", "-20", "17", largest, smallest, "\"80\""}},
    {"primary-channel", {"\"none\"", "\"lower\"", "\"upper\"", "\"ll\"", "\"uu\"", "\"x\"", "256", "null"}},
    {"available-channels",
     {R"("1 6 11")", R"("36 40 44 48")", R"("37 53 69")", R"("")", R"("36,99999999999,0,-4")", R"("100")", "[36,40]",
      "36", "null"}},
    {"mac-offset", {"0", "16", "32", "1", "-16", "16777215", largest, smallest, "\"16\""}},
    {"radio-mac-count", {"16", "0", "1", "48", "-1", "65536", largest, smallest}},
    {"locked-for-tpc", {"0", "1", "-1", "\"1\""}},
    {"locked-for-dca", {"0", "1", "-1", "null"}},
    {"locked-for-balancer", {"0", "1", "2", "[]"}},
    {"locked-for-80211v", {"0", "1", "2", "{}"}},
    {"vaps",
     {R"([{"id":0,"ssid":"office","802dot11k":1,"802dot11r":1,"802dot11v":1}])",
      R"([{"id":0,"ssid":"office","802dot11k":1},{"id":1,"ssid":"guest","802dot11k":1,"802dot11r":1}])",
      R"([{"id":15,"ssid":"office","802dot11r":1},{"id":15,"ssid":"office","802dot11v":1}])",
      R"([{"id":16,"ssid":"office","802dot11k":1}])", R"([{"id":-1,"ssid":"office"}])", "[]", "null", "[null,[],1]",
      R"([{"id":0,"ssid":"office","mac":"00:11:22:33:0A:10","802dot11r":1,"802dot11k":1}])",
      R"([{"id":0,"ssid":"office","802dot11r":1,"fbt-r0-keyholder":"a","fbt-r1-keyholder":"00:11:22:33:0B:10",)"
      R"("fbt-rrb-key":"k","fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"}]}])",
      R"([{"id":0,"ssid":"office","802dot11r":1,"fbt-rrb-key":""},{"id":1,"ssid":"","802dot11k":1}])"}},
    {"assoclist",
     {"[]", R"([{"mac":"0A:00:00:00:00:00","rssi":-60,"ssid":"office"}])",
      R"([{"mac":"0A:00:00:00:00:00","rssi":-80,"ssid":"office"},{"mac":"0A:00:00:00:00:01","rssi":-60,)"
      R"("ssid":"office"},{"mac":"0A:00:00:00:00:02","rssi":0,"ssid":"guest"}])",
      "null", R"([null,{},{"mac":1}])"}},
};

const std::vector<Field> message_fields = {
    {"version", {R"("2.4")", R"("2.0")", R"("2.5")", R"("3.0")", R"("x")", "2", "null"}},
    {"ap-mac-count", {"48", "0", "16", "-1", "16777216", largest, "\"48\""}},
    {"use-wildcard-80211r", {"0", "1", "\"1\""}},
    {"factory",
     {R"({"board":"NVA-1K","hw":"2","serial":"S","mac":"00:11:22:33:0B:00"})", R"({"board":"NVA-1K"})", "1"}},
    {"radio", {"0", "1", "2", "3", "-1", "\"1\"", largest}},
    {"sta-mac", {R"("0A:00:00:00:00:00")", R"("")", R"("x")", R"("08:00:00:00:00:00")", "1", R"("00:11:22:33:0A:10")"}},
    {"ssid", {R"("office")", R"("guest")", R"("")", R"("none")", "1", "null"}},
    {"rssi", {"-60", "-80", "-75", "-65", "0", "-1", "5", largest, smallest, beyond, "\"-60\"", "null"}},
    {"state", {R"("stable")", R"("unstable")", R"("")", "1"}},
    {"no-balance", {"0", "1", "-1", "\"1\""}},
    {"need-ack", {"0", "1", "true"}},
    {"target-mac",
     {R"("00:11:22:33:0A:00")", R"("00:11:22:33:0B:10")", R"("00:11:22:33:0C:20")", R"("02:11:22:33:0B:10")", R"("")"}},
    {"service", {R"("rrm")", R"("rrm-internal")", R"("internal-ipc")", "1"}},
    {"domain", {R"("lab")", R"("hall")", "1"}},
    {"radios", {"[]", "null", "{}", "[null]", R"([{"id":1}])", R"([1,"x",[]])"}},
    {"rf-environment", {"[]", "null", "[[]]", "[null]", "[[null]]", R"([[{"bssid":1}]])", "{}"}},
};

// The settings in which domains differ most, one edit each.
constexpr const char* edits[] = {R"({"use_dca":0})",
                                 R"({"use_tpc":0})",
                                 R"({"use_80211v":1})",
                                 R"({"use_80211k":0})",
                                 R"({"use_80211r":0})",
                                 R"({"use_balance":0})",
                                 R"({"use_all_ap_balance":1})",
                                 R"({"use_hd_mode":0})",
                                 R"({"use_dunva_rrm_scan":0})",
                                 R"({"use_optimization_event":0})",
                                 R"({"use_optimization_time":1,"optimization_time":"22:14"})",
                                 R"({"away_timeout":10})",
                                 R"({"away_timeout":3600})",
                                 R"({"load_balance_sta_low":1,"load_balance_sta_high":1})",
                                 R"({"load_balance_sta_low":1,"load_balance_sta_high":2})",
                                 R"({"sta_load_balance_period":0})",
                                 R"({"sta_load_balance_period":5})",
                                 R"({"load_balance_roam_count_min":0,"load_balance_roam_count_max":0})",
                                 R"({"load_balance_roam_count_min":100})",
                                 R"({"dca_threshold":0})",
                                 R"({"dca_threshold":99})",
                                 R"({"blacklist_timeout":5})",
                                 R"({"blacklist_thr_low":-1,"blacklist_thr_high":-100})",
                                 R"({"ap_rssi_threshold_5g":-100,"hysteresis_5g":10})",
                                 R"({"ap_rssi_threshold_5g":-1})",
                                 R"({"use_80211r_2g_cross_band":0})",
                                 R"({"use_rrm_report":0})"};

constexpr const char* server_edits[] = {R"({"enabled":0})", R"({"enabled":1})", R"({"use_wildcard_80211r":1})",
                                        R"({"use_wildcard_80211r":0})"};

std::string address_of_ap(std::size_t ap) {
  return std::string("00:11:22:33:0") + static_cast<char>('A' + ap % 4) + ":00";
}

MacAddr address_of_radio(std::size_t ap, std::size_t radio) {
  return MacAddr::parse(address_of_ap(ap).c_str()).plus(static_cast<std::int32_t>(16 * radio));
}

std::string station(char choice) {
  return MacAddr::from_number(0x0a0000000000 + place_of(choice) % 16).to_string();
}

// Who an AP says it is: its own address, one of its radios', one with the local bit, or nobody's.
std::string ap_mac(char choice) {
  if (choice >= '0' && choice <= '3') return address_of_ap(static_cast<std::size_t>(choice - '0'));
  if (choice >= 'a' && choice <= 'd') return address_of_radio(static_cast<std::size_t>(choice - 'a'), 1).to_string();
  if (choice >= 'e' && choice <= 'h') return address_of_radio(static_cast<std::size_t>(choice - 'e'), 2).to_string();
  if (choice >= 'i' && choice <= 'l') {
    return address_of_radio(static_cast<std::size_t>(choice - 'i'), 1).with_local_bit_flipped().to_string();
  }
  return choice == 'z' ? "00:00:00:00:00:00" : choice == 'y' ? "FF:FF:FF:FF:FF:FF" : choice == 'x' ? "x" : "";
}

RadioJson office(RadioJson radio) {
  return radio.with_raw("vaps", radio_fields[20].values[0]);
}

// a, b, c: one of each band; d: off; e: wide; f: on a channel that it may not use; g: locked for all; h: with limits of
// its EIRP.
RadioJson a_radio(char profile) {
  using namespace rrm::testing;
  switch (profile) {
    case 'a':
      return office(a_2ghz_radio());
    case 'c':
      return office(a_6ghz_radio());
    case 'd':
      return office(a_5ghz_radio()).disabled();
    case 'e':
      return office(a_5ghz_radio(36, "36 40 44 48 52 56 60 64")).with("bandwidth", 80).with("primary-channel", "ll");
    case 'f':
      return office(a_5ghz_radio(165));
    case 'g':
      return office(a_5ghz_radio())
          .with("locked-for-tpc", 1)
          .with("locked-for-dca", 1)
          .with("locked-for-balancer", 1)
          .with("locked-for-80211v", 1);
    case 'h':
      return office(a_5ghz_radio())
          .with("eirp-min", 10)
          .with("eirp-max", 20)
          .with_raw("antenna-configuration", radio_fields[10].values[0]);
    default:
      return office(a_5ghz_radio());
  }
}

// The value of a field by choice; '-' leaves the field out.
template <class Builder>
void bend(Builder& object, const std::vector<Field>& fields, char field, char choice) {
  const Field& chosen = fields[static_cast<std::size_t>(field - 'A') % fields.size()];
  if (choice == '-') {
    object.without(chosen.key);
  } else {
    object.with_raw(chosen.key, pick(chosen.values, choice));
  }
}

// An AP's message. Small letters add radios, or choose the radio of a client; digits choose the client, or add what the
// AP heard; '/' begins another round of the scan; a capital and a character bend a field of the last radio, or of the
// message as long as there is none.
class Message {
 public:
  Message(const char* command, const std::string& mac, bool subscribes)
      : message_(subscribes ? rrm::testing::a_subscribe(mac) : rrm::testing::a_message(command, mac)) {}

  void about_a_client() {
    message_.with("radio", 1).with("sta-mac", station('0')).with("ssid", "office").with("rssi", -60);
    message_.with("state", "stable").with("need-ack", 1).with("target-mac", address_of_ap(1));
  }
  void read_client(Choices choices) {
    while (choices.any()) {
      const char choice = choices.next();
      if (choice >= 'A' && choice <= 'Z') {
        bend(message_, message_fields, choice, choices.next());
      } else if (choice >= 'a' && choice <= 'c') {
        message_.with("radio", choice - 'a');
      } else {
        message_.with("sta-mac", station(choice));
      }
    }
  }

  void read_radios(Choices choices) {
    std::vector<RadioJson> radios;
    std::vector<std::vector<rrm::testing::HeardJson>> rounds;
    while (choices.any()) {
      const char choice = choices.next();
      if (choice >= 'A' && choice <= 'Z') {
        const char value = choices.next();
        radios.empty() ? bend(message_, message_fields, choice, value)
                       : bend(radios.back(), radio_fields, choice, value);
      } else if (choice >= 'a' && choice <= 'z') {
        radios.push_back(a_radio(choice));
      } else if (choice == '/') {
        rounds.emplace_back();
      } else {
        if (rounds.empty()) rounds.emplace_back();
        rounds.back().push_back(heard(choice, choices.next('0')));
      }
    }
    for (const RadioJson& radio : radios) message_.with_radio(radio);
    for (const auto& round : rounds) message_.with_heard(round);
  }

  // Each letter a radio, each digit and its level a client that it heard.
  void read_probes(Choices choices) {
    std::vector<rrm::testing::ObjectText> radios;
    std::vector<std::vector<std::string>> lists;
    while (choices.any()) {
      const char choice = choices.next();
      if (radios.empty() || (choice >= 'a' && choice <= 'z')) {
        radios.emplace_back();
        lists.emplace_back();
        radios.back().set("id", static_cast<int>(place_of(choice)) - 10);
        continue;
      }
      rrm::testing::ObjectText entry;
      entry.set("mac", choice == '.' ? "" : station(choice));
      entry.set("ssid", std::string("office"));
      entry.set_raw("rssi", pick(message_fields[7].values, choices.next()));
      lists.back().push_back(entry.text());
    }
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < radios.size(); ++i) {
      radios[i].set_raw("probe-list", rrm::testing::array_text(lists[i]));
      texts.push_back(radios[i].text());
    }
    message_.with_raw("radios", rrm::testing::array_text(texts));
  }

  std::string text() const { return message_.text(); }

 private:
  // Radio n of an AP, or a stranger.
  static rrm::testing::HeardJson heard(char who, char level) {
    constexpr int channels[] = {1, 36, 37};
    constexpr int levels[] = {-60, -40, -50, -70, -80, -90, -100, 0, 127, -128};
    const std::size_t place = place_of(who) % 14;
    const std::size_t radio = place / 4 % 3;
    const MacAddr bssid =
        place < 12 ? address_of_radio(place % 4, radio) : address_of_radio(place % 4, 1).with_local_bit_flipped();
    return {bssid.to_string(), channels[radio], pick(levels, level)};
  }

  MessageJson message_;
};

std::string message_text(Choices& choices) {
  const std::string mac = ap_mac(choices.next());
  choices.next();  // the session, which is not the message's concern
  const char command = choices.next('s');
  constexpr std::pair<char, const char*> commands[] = {
      {'s', "subscribe-request"}, {'u', "unsubscribe-request"},      {'g', "rrm-mode-response"},
      {'r', "rrm-response"},      {'f', "rrm-config-changed"},       {'l', "rrm-assoc-state-changed"},
      {'a', "rrm-client-assoc"},  {'d', "rrm-client-disassoc"},      {'p', "rrm-probe-response"},
      {'t', "rrm-sta-roam"},      {'x', "rrm-disassoc-all-clients"}, {'?', "no-such-command"},
  };
  const auto* const found =
      std::find_if(std::begin(commands), std::end(commands), [&](const auto& known) { return known.first == command; });
  const char* const word = found != std::end(commands) ? found->second : "";
  Message message(word, mac, command == 's');
  if (command == 'l' || command == 'a' || command == 'd' || command == 't') {
    message.about_a_client();
    message.read_client(choices);
  } else if (command == 'p') {
    message.read_probes(choices);
  } else {
    message.read_radios(choices);
  }
  return message.text();
}

// What the plan of one run may do to the radios.
void require_sound_plan(const ApMap& before, const rrm::DomainConfig& config, const rrm::OptimizationResult& result) {
  require(result.success, "a plan succeeds");
  for (const auto& [mac, planned] : result.radios) {
    const auto ap = before.find(mac);
    require(ap != nullptr, "the plan knows the domain's APs only");
    for (const Radio& radio : planned.list) {
      const Radio& old = *ap->radios.find(radio.id);
      if (radio.channel != old.channel) {
        require(config.use_dca && old.status && old.locked_dca == 0, "only a free radio is moved");
        require(old.available_channels.contains(radio.channel), "a radio is moved to a channel that it may use");
      }
      if (radio.power != old.power) {
        require(config.use_tpc && old.status, "only a radio in use is turned");
        require(radio.clamp_power(radio.power) == radio.power, "power stays within its limits");
      }
    }
  }
}

// Has nothing to remember between two inputs, and queues for a whole site that need not be made for each.
RecordingServer& the_server() {
  static rrm::GlobalConfig configuration("", R"({"global":{}})");
  static RecordingServer server(&configuration);
  return server;
}

void require_sound(const Radio& radio) {
  for (const auto& [mac, seconds] : radio.problist.members()) require(seconds > 0, "a block has time left");
  for (const auto& [ssid, vap] : radio.vaps) require(vap.ssid == ssid && !ssid.empty(), "a VAP has its network's name");
  require(radio.status || (!radio.tpc_managed && !radio.dca_managed), "no plan holds a disabled radio");
  require(radio.roam_peers >= 0 && radio.roam_peer_clients >= 0, "nobody has less than no peers");
}

class Domain {
 public:
  Domain() : global_("", R"({"global":{"reports_path":"/dev/null/reports"}})") { make(); }
  ~Domain() {
    end_worker();
    server_.take_sent();
    server_.take_closed();
  }
  Domain(const Domain&) = delete;
  Domain& operator=(const Domain&) = delete;

  void step(std::string_view line) {
    Choices choices(line);
    switch (choices.next()) {
      case 'm': {
        const std::uint32_t session = session_of(line.size() > 2 ? line[2] : '0');
        say(session, message_text(choices));
        break;
      }
      case 'j': {
        const std::uint32_t session = session_of(choices.next());
        say(session, std::string(choices.rest()));
        break;
      }
      case 'x':
        end_session(choices.next());
        break;
      case 't':
        wait(seconds(choices.next()));
        break;
      case 'T':
        skip(seconds(choices.next()));
        break;
      case 'c':
        finish_computing();
        break;
      case 'o':
        locked([](RrmWorker& lab) { lab.force_optimization(); });
        break;
      case 'b':
        process(0, rrm::internal_message::stop_load_balancer);
        break;
      case 's':
        edit(choices);
        break;
      case 'g':
        edit_server(choices.next());
        break;
      case 'r':
        take_over();
        break;
      case 'q':
        ask(ap_mac(choices.next()));
        break;
      default:
        break;
    }
    look();
  }

 private:
  static std::int32_t seconds(char choice) {
    constexpr std::int32_t lengths[] = {1, 2, 5, 10, 15, 20, 21, 30, 60, 120, 310};
    return pick(lengths, choice);
  }

  // The session that a slot has now, or with a capital one that is gone: what it said last may come late.
  std::uint32_t session_of(char slot) {
    const std::size_t place = place_of(slot) % sessions_.size();
    if (slot >= 'A' && slot <= 'Z' && former_[place] != 0) {
      late_.insert(former_[place]);
      return former_[place];
    }
    if (sessions_[place] == 0) sessions_[place] = ++last_session_;
    return sessions_[place];
  }
  void forget_session(std::size_t place) { former_[place] = std::exchange(sessions_[place], 0); }

  void make() {
    const auto compute = [this](rrm::OptimizationContext& context, const std::atomic<bool>& cancel) {
      may_compute_.acquire();
      const ApMap before = context.aps.clone();
      rrm::OptimizationResult result = run_optimization(context, cancel);
      if (!cancel) require_sound_plan(before, context.config, result);
      return result;
    };
    worker_ = std::make_shared<RrmWorker>(&global_, settings_, "lab", &server_, 3600, 16, compute);
    closed_.clear();
    claims_ = {};
    channels_.begin();
    clients_.begin();
  }
  void begin_worker() {
    worker_->connect();
    std::srand(1);
  }
  void end_worker() {
    if (computing()) may_compute_.release();
    worker_->disconnect();
    worker_.reset();
  }

  void locked(const std::function<void(RrmWorker&)>& action) {
    worker_->execute_locked([&] { action(*worker_); });
  }
  bool computing() const { return worker_->tpc_dca().computing(); }

  void pass_time(RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS {
    lab.before_messages();
    const auto is_on_air = [](const auto& node) { return node.second->radios.any_on_air(); };
    if (lab.balancing_paused()) clients_.orders_may_be_dropped();
    if (std::none_of(lab.aps().begin(), lab.aps().end(), is_on_air)) channels_.pools_may_be_emptied();
  }

  // An AP that subscribes over another session gives up the one that it had.
  void note_replaced_session(const zal::fuzz::MessageReading& reading, std::uint32_t session) {
    if (reading.command != rrm::protocol::Command::subscribe_request || reading.ap == nullptr) return;
    const std::uint32_t before = reading.ap->session_dropped ? 0 : reading.ap->session.id;
    if (before != 0 && before != session) closed_.insert(before);
  }

  void process(std::uint32_t session, const std::string& text) {
    JsonReader json(text.c_str());
    BaseSession sender{};
    sender.id = session;
    zal::fuzz::MessageReading reading;
    locked([&](RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS {
      pass_time(lab);
      claims_.check(lab);
      clients_.check(lab);
      reading = zal::fuzz::reading_of(lab, global_.enabled(), json, session);
      const bool subscribes = reading.command == rrm::protocol::Command::subscribe_request;
      if (subscribes && closed_.contains(session)) reading = {};
      note_replaced_session(reading, session);
      clients_.hear(lab, reading, json);
      lab.process_message(json, sender);
    });
    worker_->after_messages();
    read_sent();
    if (reading.reads_radios) channels_.read_message(json.get("radios"));
  }
  // As the dispatcher does, which lets no order from outside through and no text that is no JSON.
  void say(std::uint32_t session, const std::string& text) {
    const JsonReader json(text.c_str());
    const std::string_view service = json.get_string("service");
    if (json.empty() || service == "rrm-internal" || service == "internal-ipc") return;
    begin_if_ended();
    process(session, text);
  }
  void pass() {
    locked([this](RrmWorker& lab) { pass_time(lab); });
    worker_->after_messages();
    read_sent();
  }

  // A domain without APs ends by itself, and begins with the next message.
  void begin_if_ended() {
    if (!ended_) return;
    ended_ = false;
    end_worker();
    make();
    begin_worker();
  }
  void end_if_empty() {
    locked([this](RrmWorker& lab) {
      ended_ = lab.aps().empty() && lab.deleted_aps().empty() && lab.unanswered_aps().empty();
    });
  }

  void end_session(char slot) {
    const std::size_t place = place_of(slot) % sessions_.size();
    const std::uint32_t session = sessions_[place];
    if (session == 0) return;
    process(session, rrm::internal_message::drop_session);
    forget_session(place);
    gone_.insert(session);
    end_if_empty();
  }

  void wait(std::int32_t length) {
    for (std::int32_t i = 0; i < length && waited_ < most_seconds && !ended_; ++i, ++waited_) {
      clock_.advance(1);
      pass();
      if (i % 10 == 9) end_if_empty();
    }
  }
  void skip(std::int32_t length) { clock_.advance(length); }

  void finish_computing() {
    if (!computing()) return;
    may_compute_.release();
    while (computing()) std::this_thread::yield();
    pass();
  }

  void all_sessions_end() {
    for (std::size_t place = 0; place < sessions_.size(); ++place) {
      if (sessions_[place] == 0) continue;
      gone_.insert(sessions_[place]);
      forget_session(place);
    }
    late_.clear();
  }

  // Some of the edits above, or a section of settings as it is written.
  void edit(Choices& choices) {
    if (choices.rest().starts_with('{')) {
      set(std::string(choices.rest()));
    } else {
      while (choices.any()) require(set(pick(edits, choices.next())), "an edit is within its bounds");
    }
    end_worker();
    all_sessions_end();
    make();
    begin_worker();
    ended_ = false;
  }

  bool set(const std::string& section) {
    JsonWriter document;
    JsonWriter refused = JsonWriter::array(document, "invalid_parameters");
    bool failed = false;
    rrm::GlobalConfig::set_domain_settings(settings_, JsonReader(section.c_str()), refused, failed);
    return !failed;
  }

  void edit_server(char choice) {
    JsonWriter document;
    JsonWriter refused = JsonWriter::array(document, "invalid_parameters");
    bool failed = false;
    global_.set_global(JsonReader(pick(server_edits, choice)), refused, failed);
    require(!failed, "an edit is within its bounds");
  }

  std::string details() {
    JsonWriter writer;
    locked([&](RrmWorker& lab) { lab.report_details(writer); });
    return writer.to_string();
  }

  // As the daemon writes it: what is told of an AP, and its factory record.
  std::string backup_text() {
    JsonWriter backup;
    backup.add_string("name", "lab");
    backup.add_int("rrm-status", static_cast<std::int32_t>(worker_->tpc_dca().rrm_status()));
    backup.add_int("fbt-status", worker_->tpc_dca().fbt_status());
    locked([&](RrmWorker& lab) {
      const std::pair<const ApMap*, const char*> sets[] = {
          {&lab.aps(), "aps"}, {&lab.unanswered_aps(), "unanswered-aps"}, {&lab.deleted_aps(), "deleted-aps"}};
      for (const auto& [set, name] : sets) {
        JsonWriter array = JsonWriter::array(backup, name);
        for (const auto& [key, ap] : *set) write_backup(*ap, array);
      }
    });
    return backup.to_string();
  }
  static void write_backup(const ApEntry& ap, JsonWriter& array) {
    JsonWriter object = JsonWriter::object(array, nullptr);
    ap.dump_json(object);
    object.add_string("board", ap.factory.board);
    object.add_string("hw", ap.factory.hw);
    object.add_string("serial", ap.factory.serial);
  }

  void take_over() {
    const JsonReader backup(backup_text().c_str());
    require(!backup.empty(), "a backup can be read");
    const auto known = addresses();
    const auto sound = addresses_with_sound_pools();
    end_worker();
    all_sessions_end();
    make();
    locked([&](RrmWorker& lab) { lab.restore(backup); });
    std::set<std::string> named;
    for (const char* const set : {"aps", "unanswered-aps", "deleted-aps"}) {
      const JsonReader aps = backup.get(set);
      for (int i = 0; i < aps.size(); ++i) {
        channels_.read_backup(aps.at(i).get("radios").get("interfaces"));
        if (!named.insert(aps.at(i).get_string("mac")).second) claims_.give_up();
      }
    }
    begin_worker();
    const auto restored = addresses();
    require(std::includes(known.begin(), known.end(), restored.begin(), restored.end()), "only known APs are restored");
    require(std::includes(restored.begin(), restored.end(), sound.begin(), sound.end()),
            "every AP that may be restored is");
    locked([](RrmWorker& lab) {
      require(lab.aps().empty() && lab.unanswered_aps().empty(), "who is taken over is gone until it returns");
    });
    end_if_empty();
  }

  std::set<MacAddr> addresses() {
    std::set<MacAddr> all;
    locked([&](RrmWorker& lab) {
      for (const ApMap* set : {&lab.aps(), &lab.deleted_aps(), &lab.unanswered_aps()}) {
        for (const auto& [key, ap] : *set) all.insert(ap->mac);
      }
    });
    return all;
  }

  // A known AP may since have told of pools that would not be taken of a new one.
  std::set<MacAddr> addresses_with_sound_pools() {
    std::set<MacAddr> sound;
    locked([&](RrmWorker& lab) {
      for (const ApMap* set : {&lab.aps(), &lab.deleted_aps(), &lab.unanswered_aps()}) {
        for (const auto& [key, ap] : *set) {
          if (rrm::check_mac_params(*ap)) sound.insert(ap->mac);
        }
      }
    });
    return sound;
  }

  void ask(const std::string& mac) {
    const JsonReader report(details().c_str());
    require(!report.empty(), "the domain's state can be read");
    JsonWriter writer;
    locked([&](RrmWorker& lab) {
      clients_.check(lab);
      clients_.check_report(lab, report);
      const MacAddr address = MacAddr::parse(mac.c_str());
      lab.report_ap(address, RrmWorker::ApForm::whole, writer);
      lab.report_ap(address, RrmWorker::ApForm::links, writer);
    });
  }

  // From outside.
  void look() {
    read_sent();
    for (const std::uint32_t closed : server_.take_closed()) {
      if (closed == 0) continue;  // an AP has returned that was restored without a session
      gone_.insert(closed);
      closed_.insert(closed);
      const auto place = std::find(sessions_.begin(), sessions_.end(), closed);
      if (place != sessions_.end()) forget_session(static_cast<std::size_t>(place - sessions_.begin()));
    }
    locked([this](RrmWorker& lab) { look_at(lab); });
  }

  void look_at(RrmWorker& lab) {
    claims_.check(lab);
    channels_.check(lab.channel_pools());
    clients_.check(lab);
    clients_.settle();
    std::set<const ApEntry*> seen;
    std::set<MacAddr> keys;
    for (const ApMap* set : {&lab.aps(), &lab.deleted_aps(), &lab.unanswered_aps()}) {
      for (const auto& [key, ap] : *set) {
        require(ap != nullptr && seen.insert(ap.get()).second, "an AP is in one set, once");
        // One that came back under another of its addresses may have taken that of a second one.
        require(key != ap->mac || keys.insert(key).second, "an address has one AP, in one set");
        require(set->find_by_any_mac(key) == ap, "an AP is found under its key");
        require(ap->radios.list.size() == rrm::Radios::count, "an AP has three radios");
        for (const Radio& radio : ap->radios.list) {
          require_sound(radio);
          require_placed(radio);
        }
        if (set != &lab.deleted_aps()) require_subscribed(ap->session.id);
      }
    }
    const auto status = static_cast<std::int32_t>(lab.tpc_dca().rrm_status());
    require(status >= 0 && status <= 5, "the state is one of six");
  }

  // A pool that an AP moves leaves its VAPs behind until they are read again.
  void require_placed(const Radio& radio) {
    for (const auto& [ssid, vap] : radio.vaps) {
      if (placed_.contains(vap.mac)) continue;
      require(vap.mac.in_pool(radio.mac, radio.max_mac_count), "a VAP lies in its radio's pool");
      placed_.insert(vap.mac);
    }
  }

  void require_subscribed(std::uint32_t session) const {
    require(session != 0, "an AP that is here has a session");
    require(!closed_.contains(session) && !has_ended(session), "an AP that is here has a session that lives");
  }
  // And has not spoken since.
  bool has_ended(std::uint32_t session) const { return gone_.contains(session) && !late_.contains(session); }

  void read_sent() {
    namespace command = rrm::protocol::command;
    static const std::set<std::string_view> commands = {command::subscribe_response,
                                                        command::rrm_request_mode,
                                                        command::rrm_update,
                                                        command::rrm_info,
                                                        command::fbt_info,
                                                        command::rrm_probe_request,
                                                        command::rrm_blacklist,
                                                        command::rrm_client_assoc_ack,
                                                        command::rrm_disassoc_request,
                                                        command::rrm_sta_overload};
    for (const RecordingServer::Sent& sent : server_.take_sent()) {
      require(sent.session != 0 && !has_ended(sent.session), "what is sent has somebody to hear it");
      const JsonReader json(sent.text.c_str());
      require(!json.empty(), "what is sent can be read");
      require(std::string_view(json.get_string("service")) == "rrm", "what is sent names its service");
      require(std::string_view(json.get_string("version")) == rrm::protocol::version, "what is sent has a version");
      require(commands.contains(json.get_string("cmd")), "what is sent is a known command");
      require(std::string_view(json.get_string("ap-mac")).size() == 17, "what is sent names its AP");
      follow(json);
    }
  }

  // Orders that tell something of the channels and the clients.
  void follow(const JsonReader& sent) {
    namespace command = rrm::protocol::command;
    const std::string_view order = sent.get_string("cmd");
    if (order == command::rrm_request_mode) channels_.pools_are_emptied();
    if (order == command::rrm_sta_overload) clients_.check_overload(sent, worker_->config());
    if (order == command::rrm_disassoc_request) clients_.read_disassociation(sent);
    if (order == command::rrm_update) {
      locked([&](RrmWorker& lab) { channels_.check_order(sent, lab.channel_pools()); });
    }
  }

  rrm::testing::ManualClock clock_;
  rrm::GlobalConfig global_;
  RecordingServer& server_ = the_server();
  rrm::DomainConfig settings_;
  std::counting_semaphore<> may_compute_{0};
  std::shared_ptr<RrmWorker> worker_;
  bool ended_ = true;  // the domain has no APs
  std::array<std::uint32_t, 8> sessions_{};
  std::array<std::uint32_t, 8> former_{};
  std::uint32_t last_session_ = 0;
  std::set<std::uint32_t> gone_;    // the domain was told of their end
  std::set<std::uint32_t> late_;    // and heard of them again
  std::set<std::uint32_t> closed_;  // the domain ordered their end, and they subscribe nobody more
  std::set<MacAddr> placed_;        // addresses of VAPs that lay in a pool
  zal::fuzz::AddressClaims claims_;
  zal::fuzz::OfferedChannels channels_;
  zal::fuzz::ToldClients clients_;
  std::int32_t waited_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::silence_logs();
  std::string_view script(reinterpret_cast<const char*>(data), size);
  Domain domain;
  for (std::size_t i = 0; i < most_steps && !script.empty(); ++i) {
    const std::string_view line = script.substr(0, script.find('\n'));
    script.remove_prefix(std::min(line.size() + 1, script.size()));
    if (!line.empty()) domain.step(line);
  }
  return 0;
}
