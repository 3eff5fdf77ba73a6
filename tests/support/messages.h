// Builders of what an access point sends, so that a test shows only what matters to it. They write JSON by hand and
// know nothing of the server's own writers.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace rrm::testing {

// A JSON object whose members keep their order; setting a key again replaces its value in place.
class ObjectText {
 public:
  void set(const std::string& key, int value) { set_raw(key, std::to_string(value)); }
  void set(const std::string& key, const std::string& value);
  void set_raw(const std::string& key, const std::string& json);
  void remove(const std::string& key);
  std::string text() const;

 private:
  std::vector<std::pair<std::string, std::string>> members_;
};

// "text" as a JSON string.
std::string quoted(const std::string& text);
// [a,b,…] of ready JSON texts.
std::string array_text(const std::vector<std::string>& elements);

// An object under construction, whose setters chain.
template <typename Self>
class JsonBuilder {
 public:
  template <typename Value>
  Self& with(const std::string& key, Value value) {
    object_.set(key, value);
    return self();
  }
  Self& with_raw(const std::string& key, const std::string& json) {
    object_.set_raw(key, json);
    return self();
  }
  Self& without(const std::string& key) {
    object_.remove(key);
    return self();
  }

 protected:
  Self& self() { return static_cast<Self&>(*this); }
  ObjectText object_;
};

// A radio that is enabled, 20 MHz wide, free of every lock, at 14 dBm of 5 to 20.
class RadioJson : public JsonBuilder<RadioJson> {
 public:
  RadioJson(int id, int channel, const std::string& available_channels);
  RadioJson& disabled() { return with("status", 0); }
  RadioJson& with_vap(int id, const std::string& ssid, bool dot11k = true);
  std::string text() const;

 private:
  std::vector<std::string> vaps_;
};

// Radio 0 on 2.4 GHz, radio 1 on 5 GHz, radio 2 on 6 GHz, each free to use the channels given.
RadioJson a_2ghz_radio(int channel = 1, const std::string& available_channels = "1 6 11");
RadioJson a_5ghz_radio(int channel = 36, const std::string& available_channels = "36 40 44 48");
RadioJson a_6ghz_radio(int channel = 37, const std::string& available_channels = "37 53 69");

// One entry of `rf-environment`.
class HeardJson : public JsonBuilder<HeardJson> {
 public:
  HeardJson(const std::string& bssid, int channel, int rssi);
  std::string text() const { return object_.text(); }
};

// A message of an access point of the protocol's newest version.
class MessageJson : public JsonBuilder<MessageJson> {
 public:
  MessageJson(const std::string& cmd, const std::string& ap_mac);
  MessageJson& with_radio(const RadioJson& radio);
  MessageJson& with_no_radios() { return with_raw("radios", "[]"); }
  // One scan round.
  MessageJson& with_heard(const std::vector<HeardJson>& round);
  std::string text() const;

 private:
  std::vector<std::string> radios_;
  std::vector<std::string> rounds_;
};

// A subscribe-request with a whole factory record.
MessageJson a_subscribe(const std::string& ap_mac);
MessageJson a_message(const std::string& cmd, const std::string& ap_mac);

}  // namespace rrm::testing
