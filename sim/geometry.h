// The floor of a simulated site: points in metres, walls as segments seen from above, rooms as rectangles.
#pragma once

namespace sim {

// x to the right, y downwards on the drawing, z the height above the floor; metres.
struct Point {
  double x = 0;
  double y = 0;
  double z = 0;
  bool operator==(const Point&) const = default;
};

struct Segment {
  Point a;
  Point b;
};

struct Rectangle {
  Point corner;  // the corner with the smallest x and y
  double width = 0;
  double depth = 0;

  // The left and upper edges belong to the rectangle, the right and lower ones to its neighbour.
  bool contains(const Point& point) const;
  Point centre() const;
};

// In three dimensions.
double distance_m(const Point& a, const Point& b);

// Whether the straight path between two points passes through a wall, seen from above. The answer is the same in both
// directions, and a path through the joint of two walls in one line crosses exactly one of them.
bool crosses(const Segment& path, const Segment& wall);

}  // namespace sim
