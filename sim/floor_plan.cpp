#include "sim/floor_plan.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <set>

namespace sim {
namespace {

constexpr double margin = 86;       // around the floors, pixels; the networks next door stand there
constexpr double gap = 48;          // below a floor
constexpr double plan_width = 960;  // of one floor, pixels
constexpr double header_height = 92;
constexpr double title_height = 56;  // above each floor
constexpr double legend_width = 250;
constexpr const char* contention_colour = "#d7263d";

// Told apart by people with the usual kinds of colour blindness as well as twelve colours can be.
constexpr std::array<const char*, 12> palette = {"#0072b2", "#e69f00", "#009e73", "#cc79a7", "#56b4e9", "#8c564b",
                                                 "#7f3c8d", "#a6b500", "#1b3a6b", "#00a5a5", "#f28e2b", "#5d6d7e"};

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
  char buffer[1024];
  va_list arguments;
  va_start(arguments, pattern);
  std::vsnprintf(buffer, sizeof buffer, pattern, arguments);
  va_end(arguments);
  return buffer;
}

std::string escaped(const std::string& text) {
  std::string result;
  for (const char symbol : text) {
    switch (symbol) {
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '&':
        result += "&amp;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += symbol;
    }
  }
  return result;
}

std::string text_at(double x, double y, const char* style, const std::string& text) {
  return format("<text x=\"%.1f\" y=\"%.1f\" class=\"%s\">", x, y, style) + escaped(text) + "</text>\n";
}

std::string dbm(double mw) {
  return mw_as_dbm_text(mw);
}

int centre_of(const Radio& radio) {
  return channel_block(radio.band, radio.channel, radio.bandwidth, radio.primary).value().centre_channel;
}

// The blocks that the radios of a band use or could use, by centre channel, each with its colour and the 20 MHz
// channels that name it.
class Colours {
 public:
  Colours(const Picture& picture, int band) {
    for (const RadioPicture& entry : picture.radios) {
      if (entry.radio.band == band) {
        add(entry.radio);
      }
    }
  }

  const char* of(const Radio& radio) const {
    const auto position = std::distance(blocks_.begin(), blocks_.find(centre_of(radio)));
    return palette[static_cast<std::size_t>(position) % palette.size()];
  }

  // Centre, colour and name of each block.
  template <typename Visit>
  void each(const Visit& visit) const {
    std::size_t position = 0;
    for (const auto& [centre, channels] : blocks_) {
      visit(palette[position++ % palette.size()], centre, channels);
    }
  }

 private:
  void add(const Radio& radio) {
    Radio candidate = radio;
    blocks_[centre_of(radio)].insert(radio.channel);
    for (const int channel : radio.available_channels) {
      candidate.channel = channel;
      if (const auto block = channel_block(radio.band, channel, radio.bandwidth, radio.primary)) {
        blocks_[block->centre_channel].insert(channel);
      }
    }
  }

  std::map<int, std::set<int>> blocks_;
};

// One band of the site on its floor.
class Plan {
 public:
  Plan(const Site& site, const Picture& picture, int band, double top)
      : site_(site),
        picture_(picture),
        band_(band),
        top_(top),
        scale_(plan_width / site.width),
        colours_(picture, band) {}

  static double height(const Site& site) { return title_height + plan_width / site.width * site.depth + gap; }

  std::string svg() const {
    return title() + rooms() + contentions() + rings() + walls() + clients() + foreign_aps() + aps() + legend();
  }

 private:
  struct Spot {  // on the page, pixels
    double x;
    double y;
  };

  Spot spot(const Point& point) const { return {x(point), y(point)}; }

  // Networks next door stand close outside the walls, however far away they are.
  Spot spot_of(const ForeignAp& foreign) const {
    const double bottom = top_ + title_height + site_.depth * scale_;
    return {std::clamp(x(foreign.position), margin - 44, margin + plan_width + 44),
            std::clamp(y(foreign.position), top_ + title_height - 16, bottom + 20)};
  }

  double x(const Point& point) const { return margin + point.x * scale_; }
  double y(const Point& point) const { return top_ + title_height + point.y * scale_; }
  bool shown(const RadioPicture& entry) const { return entry.radio.band == band_ && entry.radio.enabled; }
  const Point& place(const RadioPicture& entry) const { return site_.access_points[entry.ap].position; }

  std::string title() const {
    const std::size_t pairs = picture_.contending_pairs(band_);
    const std::string text = band_name(band_) + ": interference " + dbm(picture_.interference_mw(band_)) + ", " +
                             std::to_string(pairs) +
                             (pairs == 1 ? " pair of APs shares air time" : " pairs of APs share air time");
    return text_at(margin, top_ + 28, "band", text);
  }

  std::string rooms() const {
    std::string svg = format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" class=\"floor\"/>\n", margin,
                             top_ + title_height, site_.width * scale_, site_.depth * scale_);
    for (const Room& room : site_.rooms) {
      const Point& corner = room.area.corner;
      svg += format("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" class=\"room\"/>\n", x(corner),
                    y(corner), room.area.width * scale_, room.area.depth * scale_);
      svg += text_at(x(corner) + 7, y(corner) + 16, "roomname", room.name);
    }
    return svg;
  }

  std::string walls() const {
    std::string svg;
    for (const Wall& wall : site_.walls) {
      svg += format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"wall\" %s/>\n", x(wall.segment.a),
                    y(wall.segment.a), x(wall.segment.b), y(wall.segment.b), wall_style(wall.material));
    }
    return svg;
  }

  static const char* wall_style(const std::string& material) {
    if (material == "concrete") {
      return "stroke=\"#4a4f57\" stroke-width=\"6\"";
    }
    return material == "glass" ? "stroke=\"#8fc1d9\" stroke-width=\"3\"" : "stroke=\"#9aa0a8\" stroke-width=\"3\"";
  }

  std::string contentions() const {
    std::string svg;
    for (const Contention& pair : picture_.contentions) {
      const RadioPicture& radio = picture_.radios[pair.radio];
      if (shown(radio)) {
        svg += contention(spot(place(radio)), other_end(pair), pair.level_dbm, pair.other >= picture_.radios.size());
      }
    }
    return svg;
  }

  Spot other_end(const Contention& pair) const {
    const std::size_t own = picture_.radios.size();
    return pair.other < own ? spot(place(picture_.radios[pair.other])) : spot_of(site_.foreign_aps[pair.other - own]);
  }

  static std::string contention(const Spot& a, const Spot& b, double level, bool with_foreign) {
    const double width = std::clamp(1 + (level + 82) / 9, 1.0, 5.0);
    return format(
        "<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"%s\" stroke-width=\"%.1f\" "
        "stroke-opacity=\"0.5\" %s/>\n",
        a.x, a.y, b.x, b.y, contention_colour, width, with_foreign ? "stroke-dasharray=\"5 4\"" : "");
  }

  double ring_radius(const Radio& radio) const { return (1.2 + 0.22 * radio.power) * scale_; }

  std::string rings() const {
    std::string svg = format(
        "<clipPath id=\"floor%d\"><rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\"/></clipPath>\n"
        "<g clip-path=\"url(#floor%d)\">\n",
        band_, margin, top_ + title_height, site_.width * scale_, site_.depth * scale_, band_);
    for (const RadioPicture& entry : picture_.radios) {
      if (shown(entry)) {
        svg += format(
            "<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" fill=\"%s\" fill-opacity=\"0.13\" stroke=\"%s\" "
            "stroke-width=\"1.6\"/>\n",
            x(place(entry)), y(place(entry)), ring_radius(entry.radio), colours_.of(entry.radio),
            colours_.of(entry.radio));
      }
    }
    return svg + "</g>\n";
  }

  std::string clients() const {
    std::string svg;
    for (const StationPicture& station : picture_.stations) {
      const Radio* const radio = serving_radio(station);
      svg += radio == nullptr ? client(station.position, "#ffffff", "#b4b9c0")
                              : link(station) + client(station.position, colours_.of(*radio), "#ffffff");
    }
    return svg;
  }

  const Radio* serving_radio(const StationPicture& station) const {
    const auto serves = [&](const RadioPicture& entry) {
      return station.association && shown(entry) && entry.ap == station.association->ap &&
             entry.radio.id == station.association->radio;
    };
    const auto found = std::find_if(picture_.radios.begin(), picture_.radios.end(), serves);
    return found == picture_.radios.end() ? nullptr : &found->radio;
  }

  std::string client(const Point& at, const char* fill, const char* stroke) const {
    return format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4\" fill=\"%s\" stroke=\"%s\" stroke-width=\"1\"/>\n", x(at),
                  y(at), fill, stroke);
  }

  std::string link(const StationPicture& station) const {
    const Point& ap = site_.access_points[station.association->ap].position;
    return format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"link\"/>\n", x(station.position),
                  y(station.position), x(ap), y(ap));
  }

  std::string foreign_aps() const {
    std::string svg;
    for (const ForeignAp& foreign : site_.foreign_aps) {
      if (foreign.band != band_) {
        continue;
      }
      const Spot at = spot_of(foreign);
      svg += format(
          "<rect x=\"-6\" y=\"-6\" width=\"12\" height=\"12\" class=\"foreign\" "
          "transform=\"translate(%.1f %.1f) rotate(45)\"/>\n",
          at.x, at.y);
      svg += foreign_name(
          at, foreign.name + " " + std::to_string(foreign.channel) + "/" + std::to_string(foreign.bandwidth));
    }
    return svg;
  }

  // Above the floor the name stands beside its mark, elsewhere below it.
  std::string foreign_name(const Spot& at, const std::string& name) const {
    return at.y < top_ + title_height ? text_at(at.x + 12, at.y + 4, "foreignname beside", name)
                                      : text_at(at.x, at.y + 20, "foreignname", name);
  }

  std::string aps() const {
    std::string svg;
    for (const RadioPicture& entry : picture_.radios) {
      if (shown(entry)) {
        svg += ap(entry);
      }
    }
    return svg;
  }

  std::string ap(const RadioPicture& entry) const {
    const double cx = x(place(entry));
    const double cy = y(place(entry));
    return format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"9\" fill=\"%s\" stroke=\"#ffffff\" stroke-width=\"2\"/>\n", cx,
                  cy, colours_.of(entry.radio)) +
           text_at(cx, cy - 15, "ap", site_.access_points[entry.ap].name) +
           text_at(cx, cy + 23, "channel",
                   std::to_string(entry.radio.channel) + "/" + std::to_string(entry.radio.bandwidth) + ", " +
                       std::to_string(entry.radio.power) + " dBm");
  }

  std::string legend() const {
    const double left = margin + plan_width + margin;
    double line = top_ + title_height + 14;
    std::string svg = text_at(left, line, "legendtitle", "channels");
    colours_.each([&](const char* colour, int centre, const std::set<int>& channels) {
      line += 20;
      svg += format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"7\" fill=\"%s\"/>\n", left + 7, line - 5, colour);
      svg += text_at(left + 22, line, "legend", block_name(centre, channels));
    });
    return svg;
  }

  static std::string block_name(int centre, const std::set<int>& channels) {
    const std::string number = std::to_string(centre);
    if (channels.size() == 1) {
      return *channels.begin() == centre ? number : number + " (primary " + std::to_string(*channels.begin()) + ")";
    }
    return number + " (" + std::to_string(*channels.begin()) + " to " + std::to_string(*channels.rbegin()) + ")";
  }

  const Site& site_;
  const Picture& picture_;
  const int band_;
  const double top_;
  const double scale_;
  const Colours colours_;
};

constexpr const char* style_sheet = R"(<style>
  text { font-family: "DejaVu Sans", "Helvetica Neue", Arial, sans-serif; fill: #23272e; }
  .title { font-size: 24px; font-weight: bold; }
  .subtitle { font-size: 14px; fill: #555b65; }
  .band { font-size: 17px; font-weight: bold; }
  .floor { fill: #f4f5f7; }
  .room { fill: #ffffff; }
  .roomname { font-size: 11px; fill: #7b828c; }
  .wall { stroke-linecap: round; }
  .link { stroke: #7b828c; stroke-width: 0.7; stroke-opacity: 0.45; }
  .ap, .channel, .foreignname { text-anchor: middle; paint-order: stroke; stroke: #ffffff; stroke-width: 3px;
                                stroke-linejoin: round; }
  .ap { font-size: 12px; font-weight: bold; }
  .channel { font-size: 11px; }
  .foreign { fill: #60656d; stroke: #ffffff; stroke-width: 1.5; }
  .foreignname { font-size: 10px; fill: #60656d; }
  .beside { text-anchor: start; }
  .legend { font-size: 12px; }
  .legendtitle { font-size: 13px; font-weight: bold; }
</style>
)";

std::string header(const Picture& picture, const std::string& title) {
  const std::string sums = "interference summed over all radios " + dbm(picture.interference_mw(0)) + "; " +
                           std::to_string(picture.associated()) + " of " + std::to_string(picture.stations.size()) +
                           " clients served, median SINR " + format("%.0f dB", picture.median_sinr_db());
  return text_at(margin, 44, "title", title) + text_at(margin, 70, "subtitle", sums) +
         text_at(margin, 92, "subtitle",
                 "ring: transmit power; red line: two radios share spectrum and hear each other at -82 dBm or more "
                 "(dashed: with a foreign AP)");
}

std::string key(double left, double top) {
  std::string svg;
  const auto entry = [&](int row, const std::string& shape, const char* name) {
    const double line = top + 22 * row;
    svg += format("<g transform=\"translate(%.1f %.1f)\">", left, line - 4) + shape + "</g>\n" +
           text_at(left + 26, line, "legend", name);
  };
  entry(0,
        R"svg(<rect x="-5" y="-5" width="10" height="10" class="foreign" transform="translate(8 0) rotate(45)"/>)svg",
        "foreign AP, channel/MHz");
  entry(1, R"svg(<circle cx="8" cy="0" r="4" fill="#0072b2"/>)svg", "client, served on this band");
  entry(2, R"svg(<circle cx="8" cy="0" r="4" fill="#ffffff" stroke="#b4b9c0"/>)svg", "client, not on this band");
  entry(3, R"svg(<line x1="0" x2="16" y1="0" y2="0" class="wall" stroke="#4a4f57" stroke-width="6"/>)svg", "concrete");
  entry(4, R"svg(<line x1="0" x2="16" y1="0" y2="0" class="wall" stroke="#9aa0a8" stroke-width="3"/>)svg",
        "partition, wood");
  entry(5, R"svg(<line x1="0" x2="16" y1="0" y2="0" class="wall" stroke="#8fc1d9" stroke-width="3"/>)svg", "glass");
  return svg;
}

}  // namespace

std::string floor_plan_svg(const Site& site, const Picture& picture, const std::string& title) {
  const double width = margin + plan_width + margin + legend_width;
  const double height = header_height + 3 * Plan::height(site) + 10;
  std::string svg = format(
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
      "viewBox=\"0 0 %.0f %.0f\">\n",
      width, height, width, height);
  svg += style_sheet;
  svg += "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n" + header(picture, title);
  double top = header_height + 8;
  for (const int band : {2, 5, 6}) {
    svg += Plan(site, picture, band, top).svg();
    top += Plan::height(site);
  }
  return svg + key(margin + plan_width + margin, height - gap - 130) + "</svg>\n";
}

}  // namespace sim
