// Texts that are no JSON, hardly JSON, or too much of it.
#include <string>

#include "hostile/kinds.h"

namespace hostile {
namespace {

using namespace std::string_literals;

// A sanitized server, and a sanitized peer, take their time for every byte.
#ifdef ZAL_SANITIZED
constexpr std::size_t megabytes = 2'000'000;
#else
constexpr std::size_t megabytes = 10'000'000;
#endif

// A message that asks nothing, with one more member.
std::string message_with(const std::string& member) {
  return R"({"service":"rrm","version":"2.4","domain":"yard",)" + member + "}";
}

std::string of_utf_16(const std::string& text) {
  std::string wide = "\xff\xfe";
  for (const char letter : text) wide += std::string{letter, '\0'};
  return wide;
}

}  // namespace

std::vector<Kind> json_kinds() {
  const Start session = Start::session;
  return {
      {"no JSON", session, texts({"not json", "<xml/>", "cmd=subscribe-request"}), served, {no_json}},
      {"nothing but blanks", session, texts({std::string(100000, ' ')}), served, {no_json}},
      {"half an object", session, texts({R"({"service":"rrm","cmd":)"}), served, {no_json}},
      {"an object with garbage behind it", session, texts({"{} {}"}), served, {no_json}},
      {"a comma too many", session, texts({R"({"service":"rrm",})"}), served, {no_json}},
      {"comments", session, texts({R"({/* why */"service":"rrm"})"}), served, {no_json}},
      {"single quotes", session, texts({"{'service':'rrm'}"}), served, {no_json}},
      {"keys without quotes", session, texts({"{service:1}"}), served, {no_json}},
      {"an escape that does not exist", session, texts({R"(["\x41"])"}), served, {no_json}},
      {"a control character in a text", session, texts({"[\"a\x01\"]"}), served, {no_json}},
      {"a NUL instead of a text", session, texts({"\0{}"s}), served, {no_json}},
      {"a NUL in the middle of an object", session, texts({"{\"a\":\0 1}"s}), served, {no_json}},
      {"a NUL with garbage behind it", session, texts({"{}\0garbage"s}), served, {}},
      {"a NUL inside a key",
       session,
       texts({message_with(R"("cmd\u0000":"unsubscribe-request")")}),
       served,
       {invalid_message}},

      {"arrays 512 deep", session, texts({repeated("[", 512) + repeated("]", 512)}), served, {}},
      {"arrays 513 deep", session, texts({repeated("[", 513) + repeated("]", 513)}), served, {no_json}},
      {"arrays a million deep", session, texts({repeated("[", 1'000'000)}), served, {no_json}},
      {"objects a million deep", session, texts({repeated(R"({"a":)", 1'000'000)}), served, {no_json}},
      {"a member that is 500 deep",
       session,
       texts({message_with(R"("radios":)" + repeated("[", 500) + repeated("]", 500))}),
       served,
       {invalid_message}},

      {"an integer of a million digits",
       session,
       texts({message_with(R"("cmd":)" + std::string(1'000'000, '9'))}),
       served,
       {invalid_message}},
      {"a fraction of a million digits",
       session,
       texts({message_with(R"("cmd":0.)" + std::string(1'000'000, '1'))}),
       served,
       {invalid_message}},
      {"an exponent of a million digits",
       session,
       texts({message_with(R"("cmd":1e)" + std::string(1'000'000, '9'))}),
       served,
       {invalid_message}},
      {"numbers that are none",
       session,
       texts({"[01]", "[-]", "[1.]", "[1e]", "[+1]", "[.5]", "[0x10]", "[NaN]", "[Infinity]", "[1-2]"}),
       served,
       {no_json}},

      {"bytes that are no UTF-8",
       session,
       texts({message_with("\"cmd\":\"\xc3\x28\xff\xfe\"")}),
       served,
       {invalid_message}},
      {"overlong UTF-8", session, texts({message_with("\"cmd\":\"\xc0\xae\xe0\x80\xae\"")}), served, {invalid_message}},
      {"surrogates in UTF-8", session, texts({message_with("\"cmd\":\"\xed\xa0\x80\"")}), served, {invalid_message}},
      {"a lone high surrogate", session, texts({message_with(R"("cmd":"\ud800")")}), served, {no_json}},
      {"a lone low surrogate", session, texts({message_with(R"("cmd":"\udc00")")}), served, {no_json}},
      {"surrogates the wrong way round", session, texts({message_with(R"("cmd":"\udc00\ud800")")}), served, {no_json}},
      {"a byte order mark", session, texts({"\xef\xbb\xbf{}"}), served, {no_json}},
      {"UTF-16", session, texts({of_utf_16("{}")}), served, {no_json}},

      {"the same key twice",
       session,
       texts({message_with(R"("cmd":"unsubscribe-request","cmd":"nothing")")}),
       served,
       {invalid_message}},
      {"the same key 100000 times",
       session,
       texts({message_with(repeated(R"("cmd":"nothing",)", 100000) + R"("cmd":"x")")}),
       served,
       {invalid_message}},
      {"a hundred thousand keys",
       session,
       [](Peer& peer) {
         std::string members;
         for (int i = 0; i < 100000; ++i) members += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";
         peer.socket().send_text(message_with(members));
       },
       served,
       {invalid_message}},
      {"a key of a megabyte",
       session,
       texts({message_with("\"" + std::string(1'000'000, 'k') + "\":0")}),
       served,
       {invalid_message}},

      {"a text of megabytes",
       session,
       texts({message_with(R"("cmd":")" + std::string(megabytes, 'x') + "\"")}),
       served,
       {invalid_message}},
      {"megabytes of backslashes",
       session,
       texts({message_with(R"("cmd":")" + std::string(megabytes, '\\') + "\"")}),
       served,
       {invalid_message}},
      {"megabytes of blanks",
       session,
       texts({message_with(std::string(megabytes, ' ') + R"("cmd":"x")")}),
       served,
       {invalid_message}},
      {"a million zeros",
       session,
       texts({message_with(R"("radios":[)" + repeated("0,", 1'000'000) + "0]")}),
       served,
       {invalid_message}},
      {"300000 empty objects",
       session,
       texts({message_with(R"("radios":[)" + repeated("{},", 300'000) + "0]")}),
       served,
       {invalid_message}},
      {"megabytes of brackets", session, texts({repeated("[", megabytes)}), served, {no_json}},

      {"an array for the object", session, texts({R"(["service","rrm"])"}), served, {}},
      {"a text for the object", session, texts({R"("subscribe-request")"}), served, {}},
      {"a number for the object", session, texts({"7"}), served, {}},
      {"true for the object", session, texts({"true"}), served, {}},
      {"null for the object", session, texts({"null"}), served, {no_json}},
      {"an empty object", session, texts({"{}"}), served, {}},
  };
}

}  // namespace hostile
