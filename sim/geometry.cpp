#include "sim/geometry.h"

#include <cmath>
#include <utility>

namespace sim {
namespace {

// Twice the signed area of the triangle: positive when c lies to the left of the line from a to b.
double turn(const Point& a, const Point& b, const Point& c) {
  return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

bool precedes(const Point& a, const Point& b) {
  return a.x < b.x || (a.x == b.x && a.y < b.y);
}

// One fixed direction for each segment, so that "on the line" falls to the same side whoever asks.
Segment directed(const Segment& segment) {
  return precedes(segment.b, segment.a) ? Segment{segment.b, segment.a} : segment;
}

bool separates(const Segment& line, const Segment& other) {
  return (turn(line.a, line.b, other.a) > 0) != (turn(line.a, line.b, other.b) > 0);
}

}  // namespace

bool Rectangle::contains(const Point& point) const {
  return point.x >= corner.x && point.x < corner.x + width && point.y >= corner.y && point.y < corner.y + depth;
}

Point Rectangle::centre() const {
  return {corner.x + width / 2, corner.y + depth / 2, corner.z};
}

double distance_m(const Point& a, const Point& b) {
  return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

bool crosses(const Segment& path, const Segment& wall) {
  const Segment p = directed(path);
  const Segment w = directed(wall);
  return separates(p, w) && separates(w, p);
}

}  // namespace sim
