// The orders of the controller about the log's MAC filter.
#pragma once

#include <memory>

#include "zal/IMsg.h"

// Carries out an order and answers it with a JSON text.
std::shared_ptr<zal::IPC_MSG__MAC_FILTER_RESP> obey_mac_filter_order(const zal::IPC_MSG__MAC_FILTER& order);
