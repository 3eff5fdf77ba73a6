#include "hostile/storm.h"

#include <algorithm>
#include <exception>
#include <sstream>
#include <utility>

namespace hostile {
namespace {

constexpr int first_stranger = 500;

}  // namespace

// Each begins at another place of the table.
Storm::Storm(std::size_t size, std::vector<Kind> kinds, Surroundings surroundings)
    : kinds_(std::move(kinds)), surroundings_(std::move(surroundings)), played_of_kind_(kinds_.size()) {
  for (std::size_t i = 0; i < size; ++i) {
    threads_.emplace_back(
        [this, first = i * kinds_.size() / size, number = static_cast<int>(i) + 1] { rage(first, number); });
  }
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

void Storm::rage(std::size_t first, int number) {
  for (std::size_t i = first; !is_over_; i = (i + 1) % kinds_.size()) {
    play(kinds_[i], number);
    ++played_of_kind_[i];
    ++played_;
  }
}

// The addresses of an access point that the domain knows are not looked at again: whoever is to be refused for them is
// somebody that it has never served.
void Storm::play(const Kind& kind, int number) {
  const int who = kind.fate == refused(400) ? first_stranger + number : number;
  try {
    const Fate fate = hostile::played(kind, surroundings_, who).look(kind.fate);
    if (may_end_so(kind, fate) || (kind.fate == waited_on && fate == ended)) return;  // a slow look comes after the end
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
