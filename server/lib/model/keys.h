// The fields of an AP's record that a message of the AP and the form of the backup and the queries call differently.
// They do so on purpose: the two mean different things by a key that is missing (a balancer lock that a message does
// not mention is set, one that a backup does not mention is open), so neither form may pass for the other. A field of
// a radio, a VAP, a neighbour or a client that is not here has the same key in both.
#pragma once

namespace rrm {

struct FieldKeys {
  const char* message;
  const char* backup;
};

namespace field {

// A radio.
inline constexpr FieldKeys locked_tpc{"locked-for-tpc", "locked-tpc"};
inline constexpr FieldKeys locked_dca{"locked-for-dca", "locked-dca"};
inline constexpr FieldKeys locked_balancer{"locked-for-balancer", "locked-balancer"};
inline constexpr FieldKeys locked_80211v{"locked-for-80211v", "locked-80211v"};
inline constexpr FieldKeys power_max{"power-max", "max-power"};
inline constexpr FieldKeys power_min{"power-min", "min-power"};
inline constexpr FieldKeys radio_list{"radios", "interfaces"};
inline constexpr FieldKeys client_list{"assoclist", "assoc_clients"};

// A VAP.
inline constexpr FieldKeys use_802dot11k{"802dot11k", "use_802dot11k"};
inline constexpr FieldKeys use_802dot11r{"802dot11r", "use_802dot11r"};
inline constexpr FieldKeys use_802dot11v{"802dot11v", "use_802dot11v"};

// A neighbour that was heard, and a client. A neighbour's position is a text in a message and a number in a backup.
inline constexpr FieldKeys bssid{"bssid", "mac"};
inline constexpr FieldKeys level{"rssi", "dbm-signal"};
inline constexpr FieldKeys position{"primary-channel", "primary"};

}  // namespace field
}  // namespace rrm
