// An AP holds a client until it is acknowledged: exactly once for a client that stays, never for one that moved or
// left, whatever way the query about it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "domain/steering_support.h"

namespace rrm::testing {
namespace {

struct Road {
  const char* name;
  std::function<void(class Acknowledgement&)> walk;
  std::vector<std::string> expected;
};

void PrintTo(const Road& road, std::ostream* out) {
  *out << road.name;
}

class Acknowledgement : public SteeringTest, public ::testing::WithParamInterface<Road> {
 public:
  // A radio that is not the best one for its client, which ap_b and ap_c are asked about.
  void asks() {
    start_site();
    tell(associated(ap_a, 1, -80));
  }
  void answer(int rssi_b, int rssi_c) {
    tell(heard(ap_b, 1, rssi_b));
    tell(heard(ap_c, 1, rssi_c));
  }

  using SteeringTest::advance;
  using SteeringTest::ap;
  using SteeringTest::crowd;
  using SteeringTest::drop;
  using SteeringTest::expect_client;
  using SteeringTest::fall_silent;
  using SteeringTest::lock_balancing;
  using SteeringTest::radio;
  using SteeringTest::start_site;
  using SteeringTest::tell;
};

TEST_P(Acknowledgement, ComesAsOftenAsItShould) {
  GetParam().walk(*this);
  advance(40);
  EXPECT_EQ(sent("rrm-client-assoc-ack"), GetParam().expected);
}

using Walk = Acknowledgement;
const std::vector<std::string> once = {acknowledged(ap_a, 1)};
const std::vector<std::string> never = {};

const Road roads[] = {
    {"WellPlaced", [](Walk& on) { on.start_site(), on.tell(associated(ap_a, 1, -60)); }, once},
    {"NotWanted", [](Walk& on) { on.start_site(), on.tell(associated(ap_a, 1, -60).with("need-ack", 0)); }, never},
    {"NotWantedAfterAQuery", [](Walk& on) { on.start_site(), on.tell(associated(ap_a, 1, -80).with("need-ack", 0)); },
     never},
    {"Paused", [](Walk& on) { on.start_site(), on.lock_balancing(true), on.tell(associated(ap_a, 1, -80)); }, once},
    {"MustNotBeBalanced", [](Walk& on) { on.start_site(), on.tell(associated(ap_a, 1, -80).with("no-balance", 1)); },
     once},
    {"WasExpected", [](Walk& on) { on.start_site(), on.expect_client(ap_a, 1), on.tell(associated(ap_a, 1, -80)); },
     once},
    {"NobodyToAsk",
     [](Walk& on) {
       on.start_site();
       on.tell(associated(ap_d, 1, -80));
     },
     {acknowledged(ap_d, 1)}},
    {"EverybodyIsFull",
     [](Walk& on) {
       on.start_site();
       on.crowd(ap_b, 1, 20);
       on.crowd(ap_c, 1, 20);
       on.tell(associated(ap_a, 1, -80));
     },
     once},
    {"NobodyHearsItWell", [](Walk& on) { on.asks(), on.answer(-65, -90); }, once},
    {"NobodyAnswers", [](Walk& on) { on.asks(); }, once},
    {"NoBetterRadio",
     [](Walk& on) {
       on.start_site();
       on.crowd(ap_a, 1, 5);
       on.crowd(ap_b, 1, 6);
       on.crowd(ap_c, 1, 6);
       on.tell(associated(ap_a, 1, -60));
       on.answer(-50, -50);
     },
     once},
    {"TheBestOneBecameFull",
     [](Walk& on) { on.asks(), on.crowd(ap_b, 1, 20), on.crowd(ap_c, 1, 20), on.answer(-50, -50); }, once},
    {"Moved", [](Walk& on) { on.asks(), on.answer(-50, -90); }, never},
    {"MovedButItsApDoesNotHearTheDestination", [](Walk& on) { on.asks(), on.answer(-90, -50); }, once},
    {"MovedButItsRadioIsLocked",
     [](Walk& on) {
       on.asks();
       on.radio(ap_a, 1).locked_balancer = 1;
       on.answer(-50, -90);
     },
     once},
    {"MovedWhileItWasToBeRefusedWhereItIs",
     [](Walk& on) {
       on.asks();
       on.radio(ap_a, 1).problist.add(mac(phone), 30);
       on.answer(-50, -90);
     },
     never},
    {"PausedWhenAnswered", [](Walk& on) { on.asks(), on.lock_balancing(true), on.answer(-50, -90); }, once},
    {"PausedWhenOutOfTime", [](Walk& on) { on.asks(), on.lock_balancing(true); }, once},
    {"LeftInBetween", [](Walk& on) { on.asks(), on.tell(left(ap_a, 1)); }, never},
    {"AllLeftInBetween", [](Walk& on) { on.asks(), on.tell(all_left(ap_a)); }, never},
    {"AllLeftWhileItStoodOnTwoRadios",
     [](Walk& on) {
       on.asks();
       on.radio(ap_a, 0).assoc.add_client(mac(phone), -60, "office", false, false);
       on.tell(all_left(ap_a));
     },
     never},
    {"ItsApIsGone", [](Walk& on) { on.asks(), on.drop(1); }, never},
    {"ItsApIsSilent", [](Walk& on) { on.asks(), on.fall_silent(ap_a), on.answer(-50, -90); }, once},
    {"ItsApWasSilentBefore", [](Walk& on) { on.start_site(), on.fall_silent(ap_a), on.tell(associated(ap_a, 1, -80)); },
     once},
    {"LeftAnotherAp", [](Walk& on) { on.asks(), on.tell(left(ap_b, 1)); }, once},
    {"LeftAnotherRadio", [](Walk& on) { on.asks(), on.tell(left(ap_a, 0)); }, once},
    {"LeftAnotherNetwork", [](Walk& on) { on.asks(), on.tell(left(ap_a, 1).with("ssid", "guest")); }, once},
    {"AllLeftAnotherAp",
     [](Walk& on) {
       on.asks();
       on.radio(ap_b, 1).assoc.add_client(mac(phone), -60, "office", false, false);
       on.tell(all_left(ap_b));
     },
     once},
    {"BetterLevel", [](Walk& on) { on.asks(), on.tell(level(ap_a, 1, -64)), on.answer(-50, -90); }, once},
    {"MiddlingLevel", [](Walk& on) { on.asks(), on.tell(level(ap_a, 1, -65)); }, once},
    {"AskedAgainForItsLevel", [](Walk& on) { on.asks(), on.tell(level(ap_a, 1, -81)), on.answer(-90, -90); }, once},
    {"AskedAgainForItsLevelWithNobodyLeft",
     [](Walk& on) {
       on.asks();
       on.crowd(ap_b, 1, 20);
       on.crowd(ap_c, 1, 20);
       on.tell(level(ap_a, 1, -81));
     },
     once},
    {"AskedAgainLater", [](Walk& on) { on.asks(), on.advance(10), on.tell(level(ap_a, 1, -81)), on.answer(-90, -90); },
     once},
    {"CameAgainAtTheEdge", [](Walk& on) { on.asks(), on.tell(associated(ap_a, 1, -80)), on.answer(-90, -90); }, once},
    {"CameAgainWellPlaced", [](Walk& on) { on.asks(), on.tell(associated(ap_a, 1, -70)), on.answer(-90, -90); }, once},
    {"CameAgainNotToBeBalanced",
     [](Walk& on) { on.asks(), on.tell(associated(ap_a, 1, -80).with("no-balance", 1)), on.answer(-50, -50); }, once},
    {"CameAgainInAPause",
     [](Walk& on) { on.asks(), on.lock_balancing(true), on.tell(associated(ap_a, 1, -80)), on.answer(-50, -90); },
     once},
    {"CameAgainAfterItsAcknowledgement",
     [](Walk& on) { on.asks(), on.answer(-90, -90), on.advance(1), on.tell(associated(ap_a, 1, -80)); },
     {acknowledged(ap_a, 1), acknowledged(ap_a, 1)}},
    {"WentOnToAnotherApAtTheEdge",
     [](Walk& on) { on.asks(), on.tell(associated(ap_b, 1, -80)); },
     {acknowledged(ap_b, 1)}},
    {"WentOnToAnotherApAndThenTheFirstNoticed",
     [](Walk& on) { on.asks(), on.tell(associated(ap_b, 1, -80)), on.tell(left(ap_a, 1)); },
     {acknowledged(ap_b, 1)}},
};

INSTANTIATE_TEST_SUITE_P(Roads, Acknowledgement, ::testing::ValuesIn(roads),
                         [](const auto& road) { return road.param.name; });

}  // namespace
}  // namespace rrm::testing
