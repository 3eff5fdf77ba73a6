// What a wireless LAN controller knows of a site's access points by itself, as zal_controller and zal_rrm read it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/site.h"

namespace sim {

// The records of all access points, a JSON array with one record a line: "mac", "ip", "location" (the site's domain)
// and "board-type". `addresses` has one for each access point, in their order, or none at all: then the records have no
// "ip".
std::string ap_records(const Site& site, const std::vector<std::string>& addresses);

// The boards whose radios are not 2.4, 5 and 6 GHz in this order, a JSON object of board types and bands such as
// {"outdoor": "5g 2g"}. Nothing if there are none. Throws SiteError if two access points share a board type and differ
// in a radio's band: a controller cannot know the bands of both.
std::optional<std::string> boards(const Site& site);

}  // namespace sim
