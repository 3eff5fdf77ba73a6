#include "mac_filter_orders.h"

#include <string>

#include "trace.h"
#include "zal/cfg.h"
#include "zal/tools.h"

namespace {

using Order = zal::IPC_MSG__MAC_FILTER;

void write_macs(zal::cfg_t* reply) {
  zal::cfg_set_empty_array(reply, "/macs");
  for (const zal::MacAddr& mac : trace.mac_filter().macs()) zal::cfg_add_element(reply, "/macs", mac.to_string());
}

void refuse(zal::cfg_t* reply) {
  zal::cfg_set_param(reply, "/error", true);
  zal::cfg_set_param(reply, "/cause", "invalid action");
}

// An action that has no number here changes nothing, and is answered without an error.
void obey(const Order& order, zal::cfg_t* reply) {
  zal::MacFilter& filter = trace.mac_filter();
  const std::string text = order.text.value_or("");
  switch (order.action) {
    case Order::turn_on:
      return filter.turn_on();
    case Order::turn_off:
      return filter.turn_off();
    case Order::add:
      return filter.add(zal::tools::string_to_macs(text, ' '));
    case Order::remove:
      return filter.remove(zal::tools::string_to_macs(text, ' '));
    case Order::tell_status:
      zal::cfg_set_param(reply, "/filter_status", filter.is_on());
      return;
    case Order::tell_macs:
      return write_macs(reply);
    case Order::empty:
      return filter.clear();
    case Order::invalid:
      return refuse(reply);
    default:
      return;
  }
}

}  // namespace

std::shared_ptr<zal::IPC_MSG__MAC_FILTER_RESP> obey_mac_filter_order(const Order& order) {
  auto response = std::make_shared<zal::IPC_MSG__MAC_FILTER_RESP>();
  const zal::cfg_tree reply(zal::cfg_get_empty());
  if (reply == nullptr) {
    *response->text = R"({"error":true, "cause":"can't get empty cfg"})";
    return response;
  }
  zal::cfg_set_param(reply.get(), "/error", false);
  obey(order, reply.get());
  *response->text = zal::cfg_serialize_compact(reply.get());
  return response;
}
