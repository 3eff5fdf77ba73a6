#include "hostile/storm.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <utility>

namespace hostile {

Storm::Storm(Surroundings surroundings) : surroundings_(std::move(surroundings)), played_of_kind_(all_kinds().size()) {
  for (std::size_t number = 0; number < size; ++number) threads_.emplace_back([this, number] { rage(number); });
}

Storm::~Storm() {
  stop();
}

void Storm::stop() {
  is_over_ = true;
  for (std::thread& thread : threads_) {
    if (thread.joinable()) thread.join();
  }
}

bool Storm::has_played_every_kind() const {
  return std::all_of(played_of_kind_.begin(), played_of_kind_.end(), [](const auto& count) { return count > 0; });
}

std::vector<std::string> Storm::surprises() const {
  const rrm::MutexLock lock(mutex_);
  return surprises_;
}

// Each begins at another place of the table.
void Storm::rage(std::size_t number) {
  const std::vector<Kind>& kinds = all_kinds();
  for (std::size_t i = number * kinds.size() / size; !is_over_; i = (i + 1) % kinds.size()) {
    play(kinds[i], static_cast<int>(number) + 1);
    ++played_of_kind_[i];
    ++played_;
  }
}

void Storm::play(const Kind& kind, int number) {
  try {
    const Fate fate = hostile::played(kind, surroundings_, number).look(kind.fate);
    if (fate == kind.fate || (kind.fate == waited_on && fate == ended)) return;  // a slow look comes after the end
    std::ostringstream line;
    line << kind.name << ": ";
    PrintTo(fate, &line);
    note(line.str());
  } catch (const std::exception& error) {
    note(kind.name + ": " + error.what());
  }
}

void Storm::note(const std::string& line) {
  const rrm::MutexLock lock(mutex_);
  surprises_.push_back(line);
}

}  // namespace hostile
