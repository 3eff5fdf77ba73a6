// Messages that no access point has a reason to send. What they say in the name of another access point, or in another
// domain, must have no effect there, but for the clients: a domain takes word of them from anybody.
#include <sys/socket.h>

#include <fstream>
#include <stdexcept>
#include <string>

#include "hostile/kinds.h"

namespace hostile {
namespace {

using rrm::testing::a_2ghz_radio;
using rrm::testing::a_5ghz_radio;
using rrm::testing::a_6ghz_radio;
using rrm::testing::array_text;
using rrm::testing::HeardJson;
using rrm::testing::MessageJson;
using rrm::testing::ObjectText;
using rrm::testing::quoted;
using rrm::testing::RadioJson;
using rrm::testing::WsClient;

constexpr std::size_t most_in_queue = 16;  // answers that wait for their session

using Play = std::function<void(Peer&)>;
using Write = std::function<MessageJson(const Peer&)>;

// One message, or the same one many times over.
Play says(const Write& write, int times = 1) {
  return [=](Peer& peer) {
    for (int i = 0; i < times; ++i) peer.send(write(peer));
  };
}

Play commands(const std::vector<std::string>& all) {
  return [=](Peer& peer) {
    for (const std::string& cmd : all) peer.send(peer.message(cmd));
  };
}

// As another access point, with all that a real answer has.
Play as_victim(const std::string& cmd) {
  return says([=](const Peer& peer) { return peer.message_of_victim(cmd).with_radio(a_2ghz_radio(11)); });
}

MessageJson scan_answer(const Peer& peer, int rounds, int entries) {
  MessageJson message = peer.message("rrm-response").with_radio(a_2ghz_radio());
  const std::vector<HeardJson> round(static_cast<std::size_t>(entries), HeardJson("02:00:00:00:00:01", 1, -50));
  for (int i = 0; i < rounds; ++i) message.with_heard(round);
  return message;
}

// The same with the addresses all different.
std::string mac_number(int number) {
  char text[18];
  std::snprintf(text, sizeof text, "06:00:00:%02x:%02x:%02x", number >> 16 & 0xff, number >> 8 & 0xff, number & 0xff);
  return text;
}

MessageJson client_event(const Peer& peer, const std::string& cmd, int client) {
  return peer.client_event(cmd, mac_number(client));
}

Play many_clients(const std::string& cmd, int clients) {
  return [=](Peer& peer) {
    for (int i = 0; i < clients; ++i) peer.send(client_event(peer, cmd, i).with("state", "unstable"));
  };
}

std::string list_of(int count, const std::function<std::string(int)>& element) {
  std::vector<std::string> elements;
  for (int i = 0; i < count; ++i) elements.push_back(element(i));
  return array_text(elements);
}

std::string a_client(int number) {
  ObjectText client;
  client.set("rssi", -60);
  client.set("mac", mac_number(number));
  client.set("ssid", "staff");
  return client.text();
}

MessageJson probes(const Peer& peer, int count) {
  ObjectText radio;
  radio.set("id", 0);
  radio.set_raw("probe-list", list_of(count, a_client));
  return peer.message("rrm-probe-response").with_raw("radios", array_text({radio.text()}));
}

// A subscription with another radio than it should have.
Play subscribes_with(const RadioJson& radio) {
  return says([=](const Peer& peer) {
    return rrm::testing::a_subscribe(peer.mac()).with("domain", yard_domain).with_radio(radio);
  });
}

template <class Value>
Play subscribes_with(const std::string& key, const Value& value) {
  return says([=](const Peer& peer) { return peer.subscription().with(key, value); });
}

Play subscribes_with_raw(const std::string& key, const std::string& json) {
  return says([=](const Peer& peer) { return peer.subscription().with_raw(key, json); });
}

Play subscribes_without(const std::string& key) {
  return says([=](const Peer& peer) { return peer.subscription().without(key); });
}

Play of_version(const std::vector<std::string>& versions) {
  return [=](Peer& peer) {
    for (const std::string& version : versions) peer.send(peer.message("rrm-client-assoc").with("version", version));
  };
}

Play with_changed_radio(const RadioJson& radio) {
  return says([=](const Peer& peer) { return peer.message("rrm-config-changed").with_radio(radio); });
}

// The old session of an access point ends when it comes back on a new one.
void subscribe_on_two_sessions(Peer& peer) {
  Peer second(peer.surroundings(), 0);
  second.upgrade();
  second.send(peer.subscription());
  second.await("subscribe-response");
}

void come_and_go(Peer& peer) {
  for (int i = 0; i < 200; ++i) {
    peer.send(peer.subscription());
    peer.send(peer.message("unsubscribe-request"));
  }
}

// The most that both ends of the connection hold on the way to the peer.
std::size_t capacity_towards(Peer& peer) {
  std::size_t least = 0;
  std::size_t usual = 0;
  std::size_t most = 0;
  if (!(std::ifstream("/proc/sys/net/ipv4/tcp_wmem") >> least >> usual >> most)) {
    throw std::runtime_error("no size of a send buffer");
  }
  int received = 0;
  ::socklen_t size = sizeof received;
  if (::getsockopt(peer.socket().fd(), SOL_SOCKET, SO_RCVBUF, &received, &size) != 0) {
    throw std::runtime_error("no size of a receive buffer");
  }
  return most + static_cast<std::size_t>(received);
}

// More answers than its connection and its queue hold, so that it loses some for certain, and then thousands more,
// which are all lost. The reset waits for the last of them: an event in the name of the peer, whose acknowledgement
// comes to where somebody reads.
void ask_and_never_read(Peer& peer) {
  Peer deaf = peer.companion(4096);
  deaf.upgrade();
  deaf.send(deaf.subscription());
  const std::string network(20'000, 'n');
  const MessageJson big = client_event(deaf, "rrm-client-assoc", 1).with("ssid", network).with("need-ack", 1);
  const std::size_t held = capacity_towards(deaf) / network.size() + most_in_queue;
  for (std::size_t i = 0; i < held + most_in_queue; ++i) deaf.send(big);
  const MessageJson small = deaf.message("rrm-config-changed").with_radio(a_2ghz_radio());
  for (int i = 0; i < 2000; ++i) deaf.send(small);
  deaf.send(client_event(peer, "rrm-client-assoc", 1).with("need-ack", 1));
  if (!peer.await("rrm-client-assoc-ack")) throw std::runtime_error("the last question was not heard");
  deaf.socket().reset();
}

const std::string a_megabyte(1'000'000, 'm');
constexpr int greatest = 2147483647;
constexpr int least = -2147483647 - 1;

}  // namespace

std::vector<Kind> message_kinds() {
  const Start session = Start::session;
  const Start ap = Start::access_point;
  return {
      // The envelope
      {"no service",
       session,
       says([](const Peer& peer) { return peer.message("rrm-client-assoc").without("service"); }),
       served,
       {invalid_message}},
      {"another service",
       session,
       says([](const Peer& peer) { return peer.message("rrm-client-assoc").with("service", "RRM"); }),
       served,
       {invalid_message}},
      {"no command",
       session,
       says([](const Peer& peer) { return peer.message("x").without("cmd"); }),
       served,
       {invalid_message}},
      {"a command that nobody knows",
       session,
       commands({"reboot", "%s%s%n", "SUBSCRIBE-REQUEST"}),
       served,
       {invalid_message}},
      {"a command of a megabyte", session, commands({a_megabyte}), served, {invalid_message}},
      {"a command that is a number",
       session,
       says([](const Peer& peer) { return peer.message("x").with("cmd", 7); }),
       served,
       {invalid_message}},
      {"a command that is an array",
       session,
       says([](const Peer& peer) { return peer.message("x").with_raw("cmd", R"(["subscribe-request"])"); }),
       served,
       {invalid_message}},
      {"no address",
       session,
       says([](const Peer& peer) { return peer.message("rrm-client-assoc").without("ap-mac"); }),
       served,
       {invalid_message}},
      {"an empty address",
       session,
       says([](const Peer& peer) { return peer.message("rrm-client-assoc").with("ap-mac", ""); }),
       served,
       {invalid_message}},
      {"an address that is none",
       session,
       says([](const Peer& peer) { return peer.message("rrm-mode-response").with("ap-mac", "zz:zz"); }),
       served,
       {refused_by_domain}},
      {"versions that are too new, too old or none",
       session,
       of_version({"1.9", "2.5", "3.0", "2", "", "x", "-2.4", "99999999999.1"}),
       served,
       {wrong_version}},
      {"a version that is a number",
       session,
       says([](const Peer& peer) { return peer.message("rrm-client-assoc").with("version", 2); }),
       served,
       {wrong_version}},

      // Domains
      {"a subscription to an unknown domain",
       session,
       says([](const Peer& peer) { return peer.subscription().with("domain", "nowhere"); }),
       served,
       {unknown_domain}},
      {"a subscription to no domain", session, subscribes_without("domain"), served, {unknown_domain}},
      {"a subscription to a domain of a megabyte",
       session,
       subscribes_with("domain", a_megabyte),
       served,
       {unknown_domain}},
      {"a subscription to a domain that is a path",
       session,
       subscribes_with("domain", "../../../etc/passwd"),
       served,
       {unknown_domain}},
      {"a subscription to a domain that is a format",
       session,
       subscribes_with("domain", "%s%n%s%n"),
       served,
       {unknown_domain}},
      {"a subscription to a domain that is an array",
       session,
       subscribes_with_raw("domain", R"(["yard"])"),
       served,
       {unknown_domain}},
      {"messages to a domain that nobody serves",
       session,
       says([](const Peer& peer) { return peer.message("rrm-response").with("domain", "nowhere"); }, 100),
       served,
       {}},
      {"a subscription that is refused by a domain of its own",
       session,
       says([](const Peer& peer) { return peer.subscription().with("domain", alley_domain).without("factory"); }),
       refused(503),
       {}},

      // Subscriptions
      {"a subscription without a version", session, subscribes_without("version"), refused(503), {}},
      {"a subscription of version 3.0", session, subscribes_with("version", "3.0"), refused(503), {}},
      {"a subscription without a factory", session, subscribes_without("factory"), refused(503), {}},
      {"a subscription with an empty factory", session, subscribes_with_raw("factory", "{}"), refused(503), {}},
      {"a subscription with a factory of numbers",
       session,
       subscribes_with_raw("factory", R"({"board":1,"hw":2,"serial":3,"mac":4})"),
       refused(503),
       {}},
      {"a subscription with an array for a factory",
       session,
       subscribes_with_raw("factory", "[1,2,3]"),
       refused(503),
       {}},
      {"a subscription of no addresses", session, subscribes_with("ap-mac-count", 0), refused(400), {bad_addresses}},
      {"a subscription of a negative number of addresses",
       session,
       subscribes_with("ap-mac-count", least),
       refused(400),
       {bad_addresses}},
      {"a subscription of too few addresses",
       session,
       subscribes_with("ap-mac-count", 31),
       refused(400),
       {bad_addresses}},
      {"a subscription of radios without addresses",
       session,
       subscribes_with(a_2ghz_radio().with("radio-mac-count", 0)),
       refused(400),
       {bad_addresses}},
      {"a subscription of a radio before its access point",
       session,
       subscribes_with(a_2ghz_radio().with("mac-offset", -1)),
       refused(400),
       {bad_addresses}},
      {"a subscription of addresses beyond counting",
       session,
       subscribes_with(a_2ghz_radio().with("mac-offset", greatest).with("radio-mac-count", greatest)),
       refused(400),
       {bad_addresses}},
      {"a subscription of radios with the same addresses",
       session,
       says([](const Peer& peer) {
         return rrm::testing::a_subscribe(peer.mac())
             .with("domain", yard_domain)
             .with_radio(a_2ghz_radio())
             .with_radio(a_5ghz_radio().with("mac-offset", 0));
       }),
       refused(400),
       {bad_addresses}},
      {"a subscription of the broadcast address",
       session,
       subscribes_with("ap-mac", "ff:ff:ff:ff:ff:ff"),
       refused(400),
       {bad_addresses}},
      {"a subscription twice", session, says([](const Peer& peer) { return peer.subscription(); }, 2), served, {}},
      {"a subscription 1000 times",
       session,
       says([](const Peer& peer) { return peer.subscription(); }, 1000),
       served,
       {},
       {not_written, answer_lost}},
      {"a subscription on two sessions", ap, subscribe_on_two_sessions, closed(1000), {}},
      {"coming and going 200 times", session, come_and_go, served, {}, {not_written, answer_lost}},
      {"leaving without having come", session, commands({"unsubscribe-request"}), served, {}},
      {"a factory of megabytes",
       session,
       says([](const Peer& peer) {
         return peer.subscription().with_raw("factory", R"({"board":")" + a_megabyte + R"(","hw":")" + a_megabyte +
                                                            R"(","serial":")" + a_megabyte + R"(","mac":")" +
                                                            a_megabyte + "\"}");
       }),
       served,
       {}},

      // Radios and what is on them
      {"radios that are no array",
       ap,
       says([](const Peer& peer) { return peer.message("rrm-config-changed").with_raw("radios", R"({"id":0})"); }),
       served,
       {}},
      {"radios that are no objects",
       ap,
       says([](const Peer& peer) {
         return peer.message("rrm-config-changed").with_raw("radios", R"([1,"two",null,[],true])");
       }),
       served,
       {}},
      {"2000 radios",
       ap,
       says([](const Peer& peer) {
         return peer.message("rrm-config-changed").with_raw("radios", list_of(2000, [](int i) {
                                                              return a_2ghz_radio().with("id", i % 3).text();
                                                            }));
       }),
       served,
       {}},
      {"a radio of a negative number", ap, with_changed_radio(a_2ghz_radio().with("id", -1)), served, {}},
      {"a radio of the greatest number", ap, with_changed_radio(a_2ghz_radio().with("id", greatest)), served, {}},
      {"a radio on a channel that is none",
       ap,
       with_changed_radio(a_2ghz_radio(greatest, "0 -5 99999999999999999999 ,, abc 14")),
       served,
       {}},
      {"a radio on a negative channel", ap, with_changed_radio(a_2ghz_radio(least)), served, {}},
      {"a radio of a band and width that do not exist",
       ap,
       with_changed_radio(a_2ghz_radio().with("band", 4).with("bandwidth", 7).with("primary-channel", "sideways")),
       served,
       {}},
      {"a radio with its limits the wrong way round",
       ap,
       with_changed_radio(a_5ghz_radio().with("power-min", greatest).with("power-max", least).with("power", greatest)),
       served,
       {}},
      {"a radio with an antenna beyond counting",
       ap,
       with_changed_radio(
           a_5ghz_radio()
               .with("eirp-min", least)
               .with("eirp-max", greatest)
               .with("eirp", greatest)
               .with_raw("antenna-configuration", R"({"antenna-gain":2147483647,"cable-loss":-2147483648})")),
       served,
       {}},
      {"a list of 100000 channels",
       ap,
       with_changed_radio(a_5ghz_radio(36, repeated("36 40 44 48 ", 25000))),
       served,
       {}},
      {"5000 VAPs",
       ap,
       with_changed_radio(a_2ghz_radio().with_raw(
           "vaps", list_of(5000,
                           [](int i) {
                             return R"({"id":)" + std::to_string(i) + R"(,"ssid":"s)" + std::to_string(i) +
                                    R"(","802dot11k":1,"802dot11r":1,"802dot11v":1})";
                           }))),
       served,
       {foreign_vap_address}},
      {"VAPs of strange numbers",
       ap,
       with_changed_radio(a_2ghz_radio().with_raw(
           "vaps",
           R"([{"id":-1,"ssid":"a"},{"id":2147483647,"ssid":"b"},{"id":9e99,"ssid":"c"},{"id":"x","ssid":"d"},{"ssid":7},7,null])")),
       served,
       {}},
      {"a VAP with a name of a megabyte", ap, with_changed_radio(a_2ghz_radio().with_vap(0, a_megabyte)), served, {}},
      {"20000 clients of one radio",
       ap,
       with_changed_radio(a_2ghz_radio().with_raw("assoclist", list_of(20000, a_client))),
       served,
       {}},
      {"the same client 20000 times",
       ap,
       with_changed_radio(a_2ghz_radio().with_raw("assoclist", list_of(20000, [](int) { return a_client(1); }))),
       served,
       {}},
      {"1000 changes of the configuration",
       ap,
       says([](const Peer& peer) { return peer.message("rrm-config-changed").with_radio(a_2ghz_radio()); }, 1000),
       served,
       {},
       {not_written, answer_lost}},
      {"answers that nobody reads", ap, ask_and_never_read, served, {answer_lost}, {not_written}},

      // Answers that nobody asked for
      {"a mode without a subscription", session, commands({"rrm-mode-response"}), served, {refused_by_domain}},
      {"a scan without a subscription", session, commands({"rrm-response"}), served, {refused_by_domain}},
      {"a mode that nobody asked for",
       ap,
       says([](const Peer& peer) { return peer.message("rrm-mode-response").with_radio(a_6ghz_radio()); }, 100),
       served,
       {}},
      {"a scan that nobody asked for",
       ap,
       says([](const Peer& peer) { return scan_answer(peer, 1, 10); }, 100),
       served,
       {}},
      {"a scan of 20000 entries", ap, says([](const Peer& peer) { return scan_answer(peer, 2, 10000); }), served, {}},
      {"a scan of 10000 rounds", ap, says([](const Peer& peer) { return scan_answer(peer, 10000, 1); }), served, {}},
      {"a scan that is no array",
       ap,
       says([](const Peer& peer) { return peer.message("rrm-response").with_raw("rf-environment", R"({"bssid":7})"); }),
       served,
       {}},
      {"probes that nobody asked for", ap, says([](const Peer& peer) { return probes(peer, 100); }), served, {}},
      {"20000 probes at once", ap, says([](const Peer& peer) { return probes(peer, 20000); }), served, {}},
      {"1000 answers to probes", ap, says([](const Peer& peer) { return probes(peer, 1); }, 1000), served, {}},

      // Clients that are not there
      {"5000 clients that join", ap, many_clients("rrm-client-assoc", 5000), served, {}},
      {"5000 clients that leave without having joined", ap, many_clients("rrm-client-disassoc", 5000), served, {}},
      {"5000 clients that are unstable", ap, many_clients("rrm-assoc-state-changed", 5000), served, {}},
      {"1000 roams that nobody ordered",
       ap,
       says(
           [](const Peer& peer) {
             return client_event(peer, "rrm-sta-roam", 1).with("target-mac", "02:00:00:00:00:02");
           },
           1000),
       served,
       {}},
      {"all clients leave 1000 times",
       ap,
       says([](const Peer& peer) { return peer.message("rrm-disassoc-all-clients"); }, 1000),
       served,
       {}},
      {"a client that joins a radio that is not there",
       ap,
       [](Peer& peer) {
         for (const int radio : {-1, 2, 3, 255, greatest, least})
           peer.send(client_event(peer, "rrm-client-assoc", 1).with("radio", radio));
       },
       served,
       {}},
      {"a client of the loudest and the faintest signal",
       ap,
       [](Peer& peer) {
         for (const int rssi : {0, 127, greatest, least})
           peer.send(client_event(peer, "rrm-client-assoc", 1).with("rssi", rssi));
       },
       served,
       {}},
      {"a client without an address",
       ap,
       says([](const Peer& peer) { return client_event(peer, "rrm-client-assoc", 1).with("sta-mac", "not a mac"); }),
       served,
       {}},
      {"a client of a network of a megabyte",
       ap,
       says([](const Peer& peer) { return client_event(peer, "rrm-client-assoc", 1).with("ssid", a_megabyte); }),
       served,
       {}},
      {"an acknowledgement wanted for everything",
       ap,
       says([](const Peer& peer) { return client_event(peer, "rrm-client-assoc", 1).with("need-ack", 1); }, 1000),
       served,
       {},
       {not_written, answer_lost}},

      // In the name of another access point
      {"a subscription of another's without a version",
       session,
       says([](const Peer& peer) {
         return rrm::testing::a_subscribe(peer.surroundings().victim_mac)
             .with("domain", peer.surroundings().victim_domain)
             .without("version");
       }),
       refused(503),
       {}},
      {"a subscription of another's without a factory", session, as_victim("subscribe-request"), refused(503), {}},
      {"the mode of another", session, as_victim("rrm-mode-response"), served, {refused_by_domain}},
      {"the scan of another", session, as_victim("rrm-response"), served, {refused_by_domain}},
      {"the configuration of another", session, as_victim("rrm-config-changed"), served, {refused_by_domain}},
      {"the departure of another", session, as_victim("unsubscribe-request"), served, {}},
      {"the probes of another", session, as_victim("rrm-probe-response"), served, {}},
      {"a client of another",
       session,
       says([](const Peer& peer) {
         return peer.message_of_victim("rrm-client-assoc")
             .with("radio", 0)
             .with("rssi", -60)
             .with("sta-mac", mac_number(1))
             .with("ssid", "staff");
       }),
       served,
       {},
       {},
       mac_number(1)},
      {"an unstable client of another",
       session,
       says([](const Peer& peer) {
         return peer.message_of_victim("rrm-assoc-state-changed")
             .with("radio", 0)
             .with("rssi", -90)
             .with("sta-mac", mac_number(1))
             .with("ssid", "staff")
             .with("state", "unstable");
       }),
       served,
       {}},

      // What only the server says, or says to itself
      {"the answer to a subscription", ap, commands({"subscribe-response"}), served, {invalid_message}},
      {"questions of the server",
       ap,
       commands({"rrm-request-mode", "rrm-update", "rrm-probe-request"}),
       served,
       {invalid_message}},
      {"orders of the server",
       ap,
       commands({"rrm-info", "fbt-info", "rrm-blacklist", "rrm-disassoc-request", "rrm-sta-overload",
                 "rrm-client-assoc-ack"}),
       served,
       {invalid_message}},
      {"the order to drop a session",
       ap,
       says([](const Peer& peer) { return peer.message("drop-session").with("service", "rrm-internal"); }),
       served,
       {invalid_message}},
      {"the order to stop the balancer",
       ap,
       says([](const Peer& peer) { return peer.message("stop-load-balancer").with("service", "rrm-internal"); }),
       served,
       {invalid_message}},
      {"the order to ping",
       ap,
       says([](const Peer& peer) { return peer.message("ping-session").with("service", "rrm-internal"); }),
       served,
       {invalid_message}},
      {"the order to stop a domain",
       ap,
       says([](const Peer& peer) { return peer.message("stop").with("service", "internal-ipc"); }),
       served,
       {invalid_message}},
      {"the order to stop another domain",
       session,
       says([](const Peer& peer) { return peer.message_of_victim("stop").with("service", "internal-ipc"); }),
       served,
       {invalid_message}},
      {"commands of the management",
       session,
       texts({R"({"cfg":{"operation":"get"}})", R"({"vrrp":{"role":"backup"}})", R"({"rrm":{"sessions":1}})"}),
       served,
       {}},

      // Sheer number
      {"2000 messages in a second",
       session,
       says([](const Peer& peer) { return peer.message("rrm-probe-response"); }, 2000),
       served,
       {}},
      {"2000 messages that are no JSON",
       session,
       [](Peer& peer) {
         for (int i = 0; i < 2000; ++i) peer.socket().send_text("x");
       },
       served,
       {no_json}},
  };
}

}  // namespace hostile
