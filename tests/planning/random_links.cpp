#include "planning/random_links.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace rrm::testing {
namespace {

// R1 key holders that no server would invent: no addresses at all, addresses in other notations, the wildcard.
constexpr std::array<const char*, 8> odd_r1_texts = {"nonsense",          "the hall",          "",
                                                     "00:00:00:00:00:00", "02:00:00:00:00:00", "a:b:c:d:e:f",
                                                     "ff:ff:ff:ff:ff:ff", "fd:ff:ff:ff:ff:ff"};

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c >= 'A' && c <= 'F' ? c + 32 : c; });
  return text;
}

std::string other_local_bit(const std::string& r1) {
  return MacAddr::parse(r1.c_str()).with_local_bit_flipped().to_string();
}

template <class Visit>
void for_each_vap(ApMap& aps, Visit visit) {
  for (const auto& [mac, ap] : aps) {
    for (Radio& radio : ap->radios.list) {
      for (auto& [ssid, vap] : radio.vaps) visit(vap);
    }
  }
}

}  // namespace

const VapEntry& RandomLinks::any_vap(ApMap& aps) {
  std::vector<const VapEntry*> vaps;
  for_each_vap(aps, [&](const VapEntry& vap) { vaps.push_back(&vap); });
  static const VapEntry none;
  return vaps.empty() ? none : *vaps[pick(static_cast<std::uint32_t>(vaps.size()))];
}

void RandomLinks::give_odd_texts(ApMap& aps, VapEntry& vap) {
  const VapEntry& like = any_vap(aps);
  if (percent(30)) vap.fbt_r0_keyholder = percent(50) ? "the same" : like.fbt_r0_keyholder;
  if (percent(30)) vap.fbt_rrb_key = like.fbt_rrb_key;
  switch (pick(6)) {
    case 0:
      vap.fbt_r1_keyholder = like.fbt_r1_keyholder;
      break;
    case 1:
      vap.fbt_r1_keyholder = other_local_bit(like.fbt_r1_keyholder);
      break;
    case 2:
      vap.fbt_r1_keyholder = odd_r1_texts[pick(odd_r1_texts.size())];
      break;
    case 3:
      vap.fbt_r1_keyholder = lower_case(vap.fbt_r1_keyholder);
      break;
    default:
      break;
  }
}

// Of a VAP as it is, or as it never was.
void RandomLinks::add_odd_link(ApMap& aps, VapEntry& vap) {
  const VapEntry& peer = any_vap(aps);
  FbtLink link{peer.fbt_r0_keyholder, peer.fbt_r1_keyholder, peer.fbt_rrb_key};
  switch (pick(8)) {
    case 0:
      link.remote_r0_kh_id = "another";
      break;
    case 1:
      link.remote_r1_kh_id = other_local_bit(link.remote_r1_kh_id);
      break;
    case 2:
      link.remote_r1_kh_key = "an older key";
      break;
    case 3:
      link.remote_r1_kh_id = odd_r1_texts[pick(odd_r1_texts.size())];
      break;
    case 4:
      link = {"*", "ff:ff:ff:ff:ff:ff", percent(50) ? broadcast_fbt_key() : "an older key"};
      break;
    case 5:
      link = {"*", "FF:FF:FF:FF:FF:FF", broadcast_fbt_key()};
      break;
    case 6:
      link = {"gone", "00:11:22:33:EE:01", "its key"};
      break;
    default:
      break;
  }
  vap.fbt_links.push_back(link);
}

void RandomLinks::set_up(ApMap& aps) {
  for (const auto& [mac, ap] : aps) {
    ap->use_wildcard_80211r = percent(60);
    ap->fbt_changed = percent(5);
  }
  for_each_vap(aps, [&](VapEntry& vap) {
    vap.use_802dot11r = percent(85);
    if (percent(70)) return;
    vap.fbt_r0_keyholder = "SN" + std::to_string(pick(20));
    vap.fbt_r1_keyholder = vap.mac.to_string();
    vap.fbt_rrb_key = "key" + std::to_string(pick(1000));
    if (percent(25)) give_odd_texts(aps, vap);
    for (std::uint32_t n = pick(4); n > 0; --n) add_odd_link(aps, vap);
  });
}

void RandomLinks::disturb(ApMap& aps) {
  for (auto node = aps.begin(); node != aps.end();) {
    const bool leaves = percent(5);
    if (leaves) aps.erase_from_index(node->second);
    node = leaves ? aps.erase_node(node) : std::next(node);
  }
  for (const auto& [mac, ap] : aps) {
    if (percent(10)) ap->use_wildcard_80211r = !ap->use_wildcard_80211r;
    for (Radio& radio : ap->radios.list) {
      if (percent(5)) radio.status = !radio.status;
      if (percent(5)) radio.band = std::array{0, 2, 5, 6}[pick(4)];
    }
    if (percent(20)) aps.reindex(ap);
  }
  for_each_vap(aps, [&](VapEntry& vap) {
    if (percent(4)) vap.use_802dot11r = !vap.use_802dot11r;
    if (percent(6)) vap.fbt_rrb_key = "key" + std::to_string(pick(1000));
    if (percent(6)) give_odd_texts(aps, vap);
    if (percent(10)) add_odd_link(aps, vap);
    // It becomes what a peer of it is already.
    if (percent(3) && !vap.fbt_links.empty()) vap.fbt_r1_keyholder = vap.fbt_links[0]->remote_r1_kh_id;
    if (percent(4) && !vap.fbt_links.empty()) {
      vap.fbt_links.erase(vap.fbt_links.begin() +
                          static_cast<std::ptrdiff_t>(pick(static_cast<std::uint32_t>(vap.fbt_links.size()))));
    }
  });
}

}  // namespace rrm::testing
