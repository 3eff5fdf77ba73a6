#include "sim/key_holders.h"

#include <algorithm>

namespace sim {
namespace {

constexpr const char* to_all = "ff:ff:ff:ff:ff:ff";

bool same_address(const std::string& one, const std::string& other) {
  const auto a = Mac::parse(one);
  const auto b = Mac::parse(other);
  return a && b && a->equals_up_to_local_bit(*b);
}

bool is_to_all(const KeyHolderLink& link) {
  return link.r0_id == "*" && Mac::parse(link.r1_id) == Mac::parse(to_all);
}

bool links_to(const KeyHolder& from, const KeyHolder& to) {
  return std::any_of(from.links.begin(), from.links.end(), [&](const KeyHolderLink& link) {
    return link.r0_id == to.r0_id && same_address(link.r1_id, to.r1_id) && link.key == to.key;
  });
}

bool share_the_link_to_all(const KeyHolder& one, const KeyHolder& other) {
  return std::any_of(one.links.begin(), one.links.end(), [&](const KeyHolderLink& link) {
    return is_to_all(link) && std::any_of(other.links.begin(), other.links.end(), [&](const KeyHolderLink& peer) {
             return is_to_all(peer) && peer.key == link.key;
           });
  });
}

KeyHolderLink link_from_json(const Json& remote) {
  return {text_or(remote, "remote-r0-kh-id", ""), text_or(remote, "remote-r1-kh-id", ""),
          text_or(remote, "remote-r1-kh-key", "")};
}

KeyHolder key_holder_from_json(const Json& vap) {
  KeyHolder holder;
  holder.radio = int_or(vap, "radio_id", -1);
  holder.vap = int_or(vap, "vap_id", -1);
  holder.key = text_or(vap, "fbt-rrb-key", "");
  holder.mobility_domain = int_or(vap, "mobility-domain", 0);
  holder.r0_id = text_or(vap, "r0-key-holder-id", "");
  holder.r1_id = text_or(vap, "r1-key-holder-id", "");
  for (const Json& remote : objects_of(vap, "remotes")) {
    holder.links.push_back(link_from_json(remote));
  }
  return holder;
}

}  // namespace

std::vector<KeyHolder> key_holders_from_json(const Json& message) {
  std::vector<KeyHolder> holders;
  for (const Json& vap : objects_of(message, "vaps")) {
    holders.push_back(key_holder_from_json(vap));
  }
  return holders;
}

bool can_exchange_keys(const KeyHolder& one, const KeyHolder& other) {
  return (links_to(one, other) && links_to(other, one)) || share_the_link_to_all(one, other);
}

}  // namespace sim
