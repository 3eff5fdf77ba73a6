// What the controller knows of one access point, parsed from the text of an AP-info message: a JSON object with any of
// "ip", "location" and "board-type", all texts. Immutable, and shared by whoever looks it up.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zal {

class IpcMsgRrmApInfo {
 public:
  explicit IpcMsgRrmApInfo(std::string_view text);

  // The number of a band by its name: "2g" is 0, "5g" 1, "6g" 2. Empty for any other text.
  static std::optional<int> band_from_str(std::string_view name);

  // True if the text was no object or held none of the three.
  bool is_empty() const { return !ip_ && !location_ && !board_type_; }

  const std::optional<std::string>& get_ip() const { return ip_; }
  const std::optional<std::string>& get_location() const { return location_; }
  const std::optional<std::string>& get_board_type() const { return board_type_; }

 private:
  std::optional<std::string> ip_;
  std::optional<std::string> location_;
  std::optional<std::string> board_type_;
};

}  // namespace zal
