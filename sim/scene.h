// What zal_apsim shows: each scene watches a simulation in its own way, prints what it sees and says whether it was
// what the site expects. One thread.
#pragma once

#include <memory>
#include <string>

#include "sim/simulation.h"

namespace sim {

struct SceneOptions {
  std::string scene = "plan";  // or "steering"
  std::string site;            // the file's name, for messages
  std::string out;             // directory for files, empty for none
  bool once = false;
  int timeout = 300;  // scene "plan" with `once`: seconds to wait for the first whole cycle
};

class Scene {
 public:
  virtual ~Scene() = default;

  // To be told what befalls the clients.
  virtual void take(const SteeringEvent& event) = 0;
  // Shows what is new. To be called several times a second, with the time since the beginning.
  virtual void show(Simulation& simulation, Millis now) = 0;
  // Whether there is nothing more to wait for.
  virtual bool over(const Simulation& simulation, Millis now) const = 0;
  // Shows the end and returns the program's status: 0, with `once` only if everything was seen and was as expected.
  virtual int end(const Simulation& simulation, Millis now, bool interrupted) = 0;
};

// The site must outlive the scene; complaints go to the log. Throws std::runtime_error for a scene that is unknown or
// that the site has not, for one of steering that `once` is to judge although the site expects nothing of it, and for
// an output directory that cannot be made.
std::unique_ptr<Scene> make_scene(const Site& site, const SceneOptions& options, Log log);

}  // namespace sim
