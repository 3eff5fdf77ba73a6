#include "ap_corpus.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <random>
#include <string_view>

namespace zal::bench {
namespace {

using Channels = std::vector<int>;

const Channels channels_2{1, 6, 11};
const Channels channels_5{36,  40,  44,  48,  52,  56,  60,  64,  100, 104, 108, 112,
                          116, 120, 124, 128, 132, 136, 140, 149, 153, 157, 161};
const Channels channels_6{169, 173, 177, 181, 185, 189, 193, 197, 201, 205, 209, 213, 217, 221, 225, 229};

// A text under construction. Commas come by themselves.
class Text {
 public:
  Text& open(char bracket) { return separate().raw(bracket); }
  Text& open(const char* key, char bracket) { return name(key).raw(bracket); }
  Text& close(char bracket) { return raw(bracket); }
  Text& item(int number) { return separate().raw(std::to_string(number)); }
  Text& field(const char* key, int number) { return name(key).raw(std::to_string(number)); }
  Text& field(const char* key, std::string_view text) { return name(key).raw('"').raw(text).raw('"'); }
  const std::string& str() const { return out_; }

 private:
  Text& raw(char c) {
    out_ += c;
    return *this;
  }
  Text& raw(std::string_view text) {
    out_ += text;
    return *this;
  }
  Text& separate() {
    const bool first = out_.empty() || out_.back() == '{' || out_.back() == '[' || out_.back() == ':';
    return first ? *this : raw(',');
  }
  Text& name(std::string_view key) { return separate().raw('"').raw(key).raw('"').raw(':'); }

  std::string out_;
};

class Site {
 public:
  std::string association() {
    Text text;
    envelope(text, "rrm-client-assoc");
    text.field("radio", 1).field("rssi", -58).field("sta-mac", mac(0x40)).field("ssid", "corporate-wifi-5g");
    return text.field("no-balance", 0).field("need-ack", 1).close('}').str();
  }

  std::string subscription() {
    Text text;
    envelope(text, "subscribe-request");
    text.open("factory", '{').field("board", "board-a").field("hw", "1v4").field("serial", "SN00048213");
    text.field("mac", mac(0x10)).close('}').field("ap-mac-count", 48).field("use-wildcard-80211r", 0);
    radios(text, "radios", 8, true, 0);
    return text.close('}').str();
  }

  std::string scan_answer() {
    Text text;
    envelope(text, "rrm-response");
    radios(text, "radios", 2, false, 0);
    text.open("rf-environment", '[');
    for (int radio = 0; radio < 3; ++radio) {
      text.open('[');
      for (int i = 0; i < 200; ++i) heard(text);
      text.close(']');
    }
    return text.close(']').close('}').str();
  }

  std::string domain() {
    Text text;
    text.open('{').field("name", "building-7/floor-2/east").field("rrm-status", 5).field("fbt-status", 2);
    text.open("aps", '[');
    for (int i = 0; i < 50; ++i) access_point(text);
    text.close(']').open("deleted-aps", '[').close(']').open("unanswered-aps", '[').close(']');
    return text.close('}').str();
  }

 private:
  // Not a distribution of the standard library: those differ from one library to the next.
  int below(int bound) { return static_cast<int>(random_() % static_cast<std::uint64_t>(bound)); }
  template <class Items>
  auto pick(const Items& items) {
    return items[random_() % std::size(items)];
  }
  std::string_view pick_text(std::initializer_list<std::string_view> texts) {
    return texts.begin()[random_() % texts.size()];
  }

  std::string mac(int vendor) {
    std::array<char, 18> text{};
    std::snprintf(text.data(), text.size(), "00:%02x:%02x:%02x:%02x:%02x", vendor, vendor + 16, below(256), below(256),
                  below(256));
    return text.data();
  }

  std::string hex(int length) {
    std::string text;
    while (length-- > 0) text += "0123456789abcdef"[below(16)];
    return text;
  }

  void envelope(Text& text, const char* cmd) {
    text.open('{').field("service", "rrm").field("version", "2.4").field("cmd", cmd).field("ap-mac", mac(0x10));
    text.field("domain", "building-7/floor-2/east");
  }

  void radios(Text& text, const char* key, int vaps, bool fbt, int clients) {
    text.open(key, '[');
    for (int id = 0; id < 3; ++id) radio(text, id, vaps, fbt, clients);
    text.close(']');
  }

  void radio(Text& text, int id, int vaps, bool fbt, int clients) {
    const Channels& channels = id == 0 ? channels_2 : id == 1 ? channels_5 : channels_6;
    text.open('{')
        .field("id", id)
        .field("status", 1)
        .field("channel", pick(channels))
        .field("band", id == 0 ? 2 : id + 4);
    text.field("power", 14).field("power-max", 20).field("power-min", 5).field("eirp-min", 8).field("eirp-max", 23);
    text.field("eirp", 17)
        .open("antenna-configuration", '{')
        .field("antenna-gain", 3)
        .field("cable-loss", 0)
        .close('}');
    text.field("bandwidth", 20 << (id == 0 ? 0 : id + 1));
    text.field("primary-channel", pick_text({"upper", "lower", "ll", "uu"}));
    text.field("available-channels", list(channels)).field("mac-offset", 16 * id).field("radio-mac-count", 16);
    text.field("locked-for-tpc", 0).field("locked-for-dca", 0).field("locked-for-balancer", 0);
    text.field("locked-for-80211v", 0).open("vaps", '[');
    for (int vap = 0; vap < vaps; ++vap) access_network(text, vap, fbt && vap < 4);
    text.close(']');
    if (clients > 0) associations(text, clients);
    text.close('}');
  }

  static std::string list(const Channels& channels) {
    std::string text;
    for (const int channel : channels) text.append(text.empty() ? "" : ",").append(std::to_string(channel));
    return text;
  }

  void access_network(Text& text, int id, bool fbt) {
    const std::string ssid =
        "ssid-" + std::to_string(id) + std::string(pick_text({"-guest", "-staff", "-voice", "-iot"}));
    text.open('{').field("id", id).field("ssid", ssid).field("802dot11k", 1).field("802dot11r", fbt ? 1 : 0);
    text.field("802dot11v", 1).field("mac", mac(0x10));
    if (fbt) {
      text.field("fbt-r0-keyholder", "r0kh-" + hex(12)).field("fbt-r1-keyholder", mac(0x10));
      text.field("fbt-rrb-key", hex(32));
    }
    text.close('}');
  }

  void associations(Text& text, int count) {
    text.open("assoclist", '[');
    while (count-- > 0) {
      text.open('{').field("rssi", -40 - below(45)).field("mac", mac(0x40)).field("ssid", "ssid-1-staff").close('}');
    }
    text.close(']');
  }

  void heard(Text& text) {
    const int band = pick(std::array{2, 5, 5, 6});
    text.open('{').field("bssid", mac(0x20)).field("channel", channel_of(band)).field("band", band);
    text.field("tx-power", 10 + below(11)).open("bandwidth", '[').item(20);
    if (band != 2) text.item(40).item(80);
    text.close(']').field("rssi", -38 - below(57)).field("primary-channel", pick_text({"upper", "lower"})).close('}');
  }

  int channel_of(int band) { return pick(band == 2 ? channels_2 : band == 5 ? channels_5 : channels_6); }

  void access_point(Text& text) {
    text.open('{').field("mac", mac(0x10)).field("active", 1).field("ap-mac-count", 48).field("use-wildcard-80211r", 0);
    text.open("radios", '{').field("received", 1);
    radios(text, "interfaces", 8, true, 6);
    text.close('}');
    neighbours(text, "visible-members", 100);
    neighbours(text, "visible-rogue", 200);
    text.field("board", "board-a").field("hw", "1v4").field("serial", "SN" + hex(8)).close('}');
  }

  void neighbours(Text& text, const char* key, int count) {
    text.open(key, '[');
    while (count-- > 0) {
      const int band = pick(std::array{2, 5, 5, 6});
      text.open('{').field("mac", mac(0x20)).field("dbm-signal", -38 - below(57)).field("channel", channel_of(band));
      text.field("band", band).field("bandwidth", 20 << below(3)).field("tx-power", 10 + below(11));
      text.field("primary", 256 << below(2)).close('}');
    }
    text.close(']');
  }

  std::mt19937_64 random_{20260101};
};

}  // namespace

std::vector<Document> ap_corpus() {
  Site site;
  std::vector<Document> documents;
  documents.push_back({"small", site.association()});
  documents.push_back({"medium", site.subscription()});
  documents.push_back({"large", site.scan_answer()});
  documents.push_back({"domain", site.domain()});
  return documents;
}

}  // namespace zal::bench
