// What is counted from the events of clients, what a site may expect of it, and how it is printed and written.
#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "sim/steering_figures.h"
#include "sim/steering_report.h"
#include "sites.h"

namespace sim {
namespace {

using testing::two_aps;
using testing::with;

const Mac ann{0x02c100000001};
const Mac bob{0x02c100000002};
const Mac walker{0x02c100000009};

// Radios 1 are those at 5 GHz; A and B hang in one hall.
const Place a5{0, 1};
const Place b5{1, 1};
const Place b6{1, 2};

SteeringEvent event(Millis at, const Mac& client, Happening what, Cause cause) {
  SteeringEvent result;
  result.at = at;
  result.client = client;
  result.what = what;
  result.cause = cause;
  return result;
}

SteeringEvent joined(Millis at, const Mac& client, const Place& to, Cause cause = Cause::arrival) {
  SteeringEvent result = event(at, client, Happening::joined, cause);
  result.to = to;
  result.authentication = Authentication::full;
  return result;
}

SteeringEvent moved(Millis at, const Mac& client, const Place& from, const Place& to, Cause cause) {
  SteeringEvent result = event(at, client, Happening::moved, cause);
  result.from = from;
  result.to = to;
  result.authentication = Authentication::fast;
  return result;
}

SteeringEvent left(Millis at, const Mac& client, const Place& from, Cause cause) {
  SteeringEvent result = event(at, client, Happening::left, cause);
  result.from = from;
  return result;
}

SteeringEvent turned_away(Millis at, const Mac& client, const Place& to, Cause cause) {
  SteeringEvent result = event(at, client, Happening::turned_away, cause);
  result.to = to;
  return result;
}

SteeringEvent declined(Millis at, const Mac& client, const Place& from) {
  SteeringEvent result = event(at, client, Happening::declined, Cause::transition);
  result.from = from;
  return result;
}

SteeringEvent gave_up(Millis at, const Mac& client, const Place& from, const Place& to) {
  SteeringEvent result = event(at, client, Happening::gave_up, Cause::transition);
  result.from = from;
  result.to = to;
  return result;
}

SteeringEvent held(SteeringEvent association) {
  association.held = true;
  return association;
}

SteeringEvent released(Millis at, const Mac& client, const Place& at_radio, HoldEnd end, Millis held_for) {
  SteeringEvent result = event(at, client, Happening::released, Cause::arrival);
  result.to = at_radio;
  result.hold_end = end;
  result.held_for = held_for;
  return result;
}

class SteeringFiguresTest : public ::testing::Test {
 protected:
  SteeringFiguresTest()
      : site_(parse_site(with(with(with(two_aps, R"("size": [13, 10])", R"("size": [20, 10])"), R"("clients": [)",
                                   R"("clients": [{"mac": "02:c1:00:00:00:09", "ssid": "staff", "bands": [5],
                                       "position": [2, 2], "path": [[18, 2]]}, )"),
                              R"("clients")", R"("steering": {"before": 40, "after": 160}, "clients")"))),
        ledger_(site_, *site_.steering) {}

  void take(const std::vector<SteeringEvent>& events) {
    for (const SteeringEvent& each : events) {
      ledger_.take(each);
    }
  }

  SteeringFigures figures(Millis at = 160'000) { return ledger_.figures(at); }

  RadioLoad load(const Place& place, Millis at = 160'000) {
    const SteeringFigures all = figures(at);
    for (const RadioLoad& each : all.loads) {
      if (each.place == place) {
        return each;
      }
    }
    ADD_FAILURE() << "no such radio";
    return {};
  }

  const Site site_;
  SteeringLedger ledger_;
};

TEST_F(SteeringFiguresTest, CountsTheClientsOfEachRadio) {
  take({joined(0, ann, a5), joined(1'000, bob, a5), moved(2'000, ann, a5, b5, Cause::own_choice),
        left(3'000, bob, a5, Cause::departure)});
  EXPECT_EQ(load(a5).highest, 2);
  EXPECT_EQ(load(a5).now, 0);
  EXPECT_EQ(load(b5).highest, 1);
  EXPECT_EQ(load(b5).now, 1);
  EXPECT_EQ(load(b6).highest, 0);
  EXPECT_EQ(figures().loads.size(), 6U);
}

TEST_F(SteeringFiguresTest, ALeavingClientIsTakenFromItsRadioOnce) {
  take({joined(0, ann, a5), left(2'000, ann, a5, Cause::sent_away)});
  SteeringEvent again = joined(3'000, ann, b5, Cause::sent_away);
  again.from = a5;
  take({again});
  EXPECT_EQ(load(a5).now, 0);
  EXPECT_EQ(load(b5).now, 1);
}

TEST_F(SteeringFiguresTest, TakesTheLoadsBeforeAtTheFirstMomentOfTheWindow) {
  take({joined(39'999, ann, a5)});
  EXPECT_FALSE(figures(39'999).has_before);
  take({joined(40'000, bob, a5)});
  EXPECT_TRUE(figures(40'000).has_before);
  EXPECT_EQ(load(a5).before, 1);
  EXPECT_EQ(load(a5).now, 2);
}

TEST_F(SteeringFiguresTest, TakesTheLoadsBeforeWithoutAnEventToo) {
  take({joined(10'000, ann, a5)});
  EXPECT_FALSE(figures(39'999).has_before);
  EXPECT_EQ(figures(40'000).loads[1].before, 1);
}

TEST_F(SteeringFiguresTest, CountsMovesByTheirCauseFromTheSecondAssociationOn) {
  take({joined(0, ann, a5), moved(1'000, ann, a5, b5, Cause::own_choice), moved(2'000, ann, b5, a5, Cause::came_back),
        moved(3'000, ann, a5, b5, Cause::own_choice), joined(0, bob, a5), left(4'000, bob, a5, Cause::out_of_reach),
        joined(60'000, bob, b5)});
  EXPECT_EQ(figures().moves,
            (std::map<Cause, int>{{Cause::arrival, 1}, {Cause::own_choice, 2}, {Cause::came_back, 1}}));
}

TEST_F(SteeringFiguresTest, AClientThatDepartedAndComesAgainIsNew) {
  take({joined(0, walker, a5), left(1'000, walker, a5, Cause::departure), joined(2'000, walker, b5)});
  EXPECT_TRUE(figures().moves.empty());
  EXPECT_EQ(figures().walkers[0].transitions.full, 0);
}

TEST_F(SteeringFiguresTest, TellsWhatBecameOfTransitions) {
  take({joined(0, ann, a5), moved(1'000, ann, a5, b5, Cause::transition), joined(0, bob, a5),
        turned_away(2'000, bob, b5, Cause::transition), declined(3'000, bob, a5), declined(4'000, bob, a5),
        turned_away(5'000, bob, b5, Cause::own_choice), gave_up(6'000, bob, a5, b5)});
  const SteeringFigures all = figures();
  EXPECT_EQ(all.by_transition.succeeded, 1);
  EXPECT_EQ(all.by_transition.turned_away, 1);
  EXPECT_EQ(all.by_transition.declined, 2);
  EXPECT_EQ(all.by_transition.given_up, 1);
  EXPECT_EQ(all.by_transition.given(), 5);
  EXPECT_EQ(all.ordered(), 5);
  EXPECT_EQ(all.succeeded(), 1);
  EXPECT_EQ(all.turned_away, 2);
}

// Ann, at a radio that had sent her away and that she looked for at once.
SteeringEvent came_back(Millis at, const Place& to) {
  SteeringEvent result = joined(at, ann, to, Cause::came_back);
  result.from = to;
  result.unserved = 1'000;
  return result;
}

struct SentAwayCase {
  const char* label;
  std::vector<SteeringEvent> afterwards;
  int succeeded;
  int back_at_once;
  int lost;
};

TEST_F(SteeringFiguresTest, TellsWhatBecameOfThoseWhoWereSentAway) {
  for (const SentAwayCase& c : {
           SentAwayCase{"elsewhere", {joined(3'000, ann, b5, Cause::sent_away)}, 1, 0, 0},
           {"another radio of the same AP", {joined(3'000, ann, {0, 0}, Cause::sent_away)}, 1, 0, 0},
           {"the same radio", {joined(3'000, ann, a5, Cause::sent_away)}, 0, 1, 0},
           {"elsewhere after refusals",
            {turned_away(2'500, ann, a5, Cause::sent_away), joined(3'000, ann, b5, Cause::sent_away)},
            1,
            0,
            0},
           {"back by its own will, after a refusal",
            {turned_away(2'500, ann, a5, Cause::came_back), came_back(3'000, a5)},
            0,
            1,
            0},
           {"nowhere", {}, 0, 0, 1},
           {"back by its own will, but it had found nothing for a while",
            {joined(30'000, ann, a5, Cause::came_back)},
            0,
            0,
            1},
           {"elsewhere, but it had found nothing for a while", {joined(30'000, ann, b5)}, 0, 0, 1},
       }) {
    SteeringLedger ledger(site_, *site_.steering);
    ledger.take(joined(0, ann, a5));
    ledger.take(left(2'000, ann, a5, Cause::sent_away));
    for (const SteeringEvent& each : c.afterwards) {
      ledger.take(each);
    }
    const SteeringFigures all = ledger.figures(160'000);
    EXPECT_EQ(all.by_sending_away.given(), 1) << c.label;
    EXPECT_EQ(all.by_sending_away.succeeded, c.succeeded) << c.label;
    EXPECT_EQ(all.by_sending_away.back_at_once, c.back_at_once) << c.label;
    EXPECT_EQ(all.by_sending_away.lost, c.lost) << c.label;
    EXPECT_EQ(all.by_transition.given(), 0) << c.label;
  }
}

TEST_F(SteeringFiguresTest, KeepsTheLongestTimeThatOneSentAwayWasWithoutARadio) {
  for (const auto& [at, unserved] : {std::pair<Millis, Millis>{0, 1'000}, {10'000, 2'300}, {20'000, 500}}) {
    SteeringEvent again = joined(at + 5'000, ann, b5, Cause::sent_away);
    again.unserved = unserved;
    take({joined(at, ann, a5), left(at + 1'000, ann, a5, Cause::sent_away), again,
          left(at + 6'000, ann, b5, Cause::departure)});
  }
  EXPECT_EQ(figures().longest_without_radio, 2'300);
}

TEST_F(SteeringFiguresTest, MeasuresTheGapOfWhoComesBackToo) {
  take({joined(0, ann, a5), left(2'000, ann, a5, Cause::sent_away), came_back(3'000, a5)});
  EXPECT_EQ(figures().longest_without_radio, 1'000);
  EXPECT_EQ(figures().moves, (std::map<Cause, int>{{Cause::came_back, 1}}));
}

struct BounceCase {
  const char* label;
  std::vector<SteeringEvent> events;
  int bounced;
};

TEST_F(SteeringFiguresTest, CountsWhoIsBackWithinAMinuteWhereItHadToLeave) {
  const SteeringEvent asked = moved(10'000, ann, a5, b5, Cause::transition);
  const SteeringEvent sent = left(9'000, ann, a5, Cause::sent_away);
  const SteeringEvent arrived = joined(10'000, ann, b5, Cause::sent_away);
  for (const BounceCase& c : {
           BounceCase{"by itself, in the last moment", {asked, moved(70'000, ann, b5, a5, Cause::own_choice)}, 1},
           {"a moment later", {asked, moved(70'001, ann, b5, a5, Cause::own_choice)}, 0},
           {"by order", {asked, moved(20'000, ann, b5, a5, Cause::transition)}, 1},
           {"by way of another radio",
            {asked, moved(20'000, ann, b5, b6, Cause::own_choice), moved(30'000, ann, b6, a5, Cause::came_back)},
            1},
           {"back and forth counts once for each order",
            {asked, moved(20'000, ann, b5, a5, Cause::came_back), moved(30'000, ann, a5, b5, Cause::own_choice),
             moved(40'000, ann, b5, a5, Cause::own_choice)},
            1},
           {"to a third radio", {asked, moved(20'000, ann, b5, b6, Cause::own_choice)}, 0},
           {"after it was sent away", {sent, arrived, moved(70'000, ann, b5, a5, Cause::came_back)}, 1},
           {"long after it was sent away", {sent, arrived, moved(70'001, ann, b5, a5, Cause::came_back)}, 0},
           {"at once, which is no success to be undone", {sent, joined(10'000, ann, a5, Cause::sent_away)}, 0},
           {"moves of its own have nobody to undo them",
            {moved(10'000, ann, a5, b5, Cause::own_choice), moved(20'000, ann, b5, a5, Cause::own_choice)},
            0},
       }) {
    SteeringLedger ledger(site_, *site_.steering);
    ledger.take(joined(0, ann, a5));
    for (const SteeringEvent& each : c.events) {
      ledger.take(each);
    }
    EXPECT_EQ(ledger.figures(160'000).bounced, c.bounced) << c.label;
  }
}

TEST_F(SteeringFiguresTest, TellsFastFromFullTransitionsAfterTheFirstAssociation) {
  take({joined(0, walker, a5), moved(1'000, walker, a5, b5, Cause::own_choice),
        moved(2'000, walker, b5, a5, Cause::own_choice)});
  SteeringEvent full = moved(3'000, walker, a5, b5, Cause::own_choice);
  full.authentication = Authentication::full;
  take({full, joined(0, ann, a5), moved(1'000, ann, a5, b5, Cause::transition)});
  const SteeringFigures all = figures();
  EXPECT_EQ(all.transitions.fast, 3);
  EXPECT_EQ(all.transitions.full, 1);
  ASSERT_EQ(all.walkers.size(), 1U);  // of the site's two clients, the one that walks
  EXPECT_EQ(all.walkers[0].client, walker);
  EXPECT_EQ(all.walkers[0].transitions.fast, 2);
  EXPECT_EQ(all.walkers[0].transitions.full, 1);
}

TEST_F(SteeringFiguresTest, TellsHowHeldAssociationsEnded) {
  take({held(joined(0, ann, a5)), held(joined(0, bob, a5)), held(moved(1'000, ann, a5, b5, Cause::own_choice)),
        released(1'500, bob, a5, HoldEnd::sent_away, 1'500), released(2'000, ann, b5, HoldEnd::acknowledged, 1'000)});
  const SteeringFigures all = figures();
  EXPECT_EQ(all.held.of(HoldEnd::sent_away), 1);
  EXPECT_EQ(all.held.of(HoldEnd::acknowledged), 1);
  EXPECT_EQ(all.held.of(HoldEnd::timed_out), 0);
  EXPECT_EQ(all.held.waiting, 1);
  EXPECT_EQ(all.held.longest, 1'500);
}

TEST_F(SteeringFiguresTest, CountsThoseLetInSinceTheyKeptTrying) {
  SteeringEvent stubborn = joined(3'000, ann, a5);
  stubborn.for_good = true;
  take({turned_away(1'000, ann, a5, Cause::arrival), turned_away(2'000, ann, a5, Cause::arrival), stubborn});
  EXPECT_EQ(figures().turned_away, 2);
  EXPECT_EQ(figures().let_in_for_good, 1);
}

using Arrange = std::function<void(SteeringFigures&)>;

struct CheckCase {
  const char* label;
  SteeringExpectations expected;
  Arrange arrange;
  bool passed;
  const char* name;
  const char* measured;
};

SteeringExpectations fullest_falls_by(int clients) {
  SteeringExpectations expected;
  expected.fullest_radio_falls_by = clients;
  return expected;
}

SteeringExpectations spread_shrinks_by(int clients) {
  SteeringExpectations expected;
  expected.spread = SpreadExpectation{"West", 5, clients};
  return expected;
}

SteeringExpectations walkers_are_fast(int times) {
  SteeringExpectations expected;
  expected.walker_fast_transitions = times;
  return expected;
}

SteeringExpectations orders_succeed(double share) {
  SteeringExpectations expected;
  expected.ordered_moves_succeed = share;
  return expected;
}

SteeringExpectations undone_at_most(double share) {
  SteeringExpectations expected;
  expected.moves_bounce_at_most = share;
  return expected;
}

SteeringExpectations held_answered(double share) {
  SteeringExpectations expected;
  expected.held_are_answered = share;
  return expected;
}

struct BeforeAndNow {
  int before;
  int now;
};

Arrange loads_at_5ghz(BeforeAndNow of_a, BeforeAndNow of_b, int of_a_at_2ghz = 0) {
  return [=](SteeringFigures& figures) {
    figures.loads[0].now = of_a_at_2ghz;
    figures.loads[1].before = of_a.before;
    figures.loads[1].now = of_a.now;
    figures.loads[4].before = of_b.before;
    figures.loads[4].now = of_b.now;
  };
}

Arrange walked(std::vector<WalkerFigures> walkers) {
  return [=](SteeringFigures& figures) { figures.walkers = walkers; };
}

Arrange moved(const OrderedMoves& by_transition, const OrderedMoves& by_sending_away, int bounced = 0) {
  return [=](SteeringFigures& figures) {
    figures.by_transition = by_transition;
    figures.by_sending_away = by_sending_away;
    figures.bounced = bounced;
  };
}

Arrange held_until(const std::map<HoldEnd, int>& ended) {
  return [=](SteeringFigures& figures) { figures.held.ended = ended; };
}

OrderedMoves succeeded(int times) {
  OrderedMoves moves;
  moves.succeeded = times;
  return moves;
}

OrderedMoves failed(int declined, int given_up, int turned_away, int back_at_once, int lost) {
  return {0, declined, given_up, turned_away, back_at_once, lost};
}

TEST_F(SteeringFiguresTest, ChecksWhatTheSiteExpects) {
  const char* const fullest = "the load of the fullest radio falls by 6 or more";
  const char* const spread = "the loads at 5 GHz in West come closer by 6 or more";
  const char* const walkers =
      "each client that walks has 2 fast transitions or more, and none full after its first association";
  const char* const orders = "75 % of the ordered moves or more succeed";
  const char* const undone = "25 % or less of the moves that succeed are undone within a minute";
  const char* const answered = "of the associations held back, the controller decides 90 % or more";
  const OrderedMoves none;
  for (const CheckCase& c : {
           CheckCase{"six fewer", fullest_falls_by(6), loads_at_5ghz({13, 7}, {1, 6}), true, fullest,
                     "13 on A at 5 GHz -> 7 on A at 5 GHz"},
           {"five fewer", fullest_falls_by(6), loads_at_5ghz({12, 7}, {1, 6}), false, fullest,
            "12 on A at 5 GHz -> 7 on A at 5 GHz"},
           {"another radio is as full then", fullest_falls_by(6), loads_at_5ghz({13, 1}, {1, 13}), false, fullest,
            "13 on A at 5 GHz -> 13 on B at 5 GHz"},
           {"six closer", spread_shrinks_by(6), loads_at_5ghz({13, 9}, {2, 4}), true, spread, "2 to 13 -> 4 to 9"},
           {"five closer", spread_shrinks_by(6), loads_at_5ghz({13, 9}, {2, 3}), false, spread, "2 to 13 -> 3 to 9"},
           {"no matter what other bands do", spread_shrinks_by(6), loads_at_5ghz({13, 9}, {2, 4}, 30), true, spread,
            "2 to 13 -> 4 to 9"},
           {"twice fast", walkers_are_fast(2), walked({{walker, {2, 0}}}), true, walkers,
            "02:c1:00:00:00:09 2 fast and 0 full"},
           {"once fast", walkers_are_fast(2), walked({{walker, {1, 0}}}), false, walkers,
            "02:c1:00:00:00:09 1 fast and 0 full"},
           {"once full", walkers_are_fast(2), walked({{walker, {9, 1}}}), false, walkers,
            "02:c1:00:00:00:09 9 fast and 1 full"},
           {"one walker of two", walkers_are_fast(2), walked({{walker, {1, 0}}, {ann, {5, 0}}}), false, walkers,
            "02:c1:00:00:00:09 1 fast and 0 full, 02:c1:00:00:00:01 5 fast and 0 full"},
           {"all four orders", orders_succeed(0.75), moved(succeeded(3), succeeded(1)), true, orders, "4 of 4"},
           {"no order at all", orders_succeed(0.75), moved(none, none), false, orders, "0 of 0"},
           {"three of four, one declined", orders_succeed(0.75), moved(failed(1, 0, 0, 0, 0), succeeded(3)), true,
            orders, "3 of 4"},
           {"two of three, one declined", orders_succeed(0.75), moved(failed(1, 0, 0, 0, 0), succeeded(2)), false,
            orders, "2 of 3"},
           {"two of three, one given up", orders_succeed(0.75), moved(failed(0, 1, 0, 0, 0), succeeded(2)), false,
            orders, "2 of 3"},
           {"two of three, one turned away", orders_succeed(0.75), moved(failed(0, 0, 1, 0, 0), succeeded(2)), false,
            orders, "2 of 3"},
           {"two of three, one back at once", orders_succeed(0.75), moved(succeeded(2), failed(0, 0, 0, 1, 0)), false,
            orders, "2 of 3"},
           {"two of three, one lost", orders_succeed(0.75), moved(succeeded(2), failed(0, 0, 0, 0, 1)), false, orders,
            "2 of 3"},
           {"one of four undone", undone_at_most(0.25), moved(succeeded(2), succeeded(2), 1), true, undone, "1 of 4"},
           {"one of three undone", undone_at_most(0.25), moved(succeeded(3), none, 1), false, undone, "1 of 3"},
           {"nothing that could be undone", undone_at_most(0.25), moved(failed(3, 0, 0, 0, 0), none), false, undone,
            "0 of 0"},
           {"nine of ten decided, whatever becomes of those who leave or lose their radio", held_answered(0.9),
            held_until({{HoldEnd::acknowledged, 7},
                        {HoldEnd::sent_away, 2},
                        {HoldEnd::client_left, 5},
                        {HoldEnd::radio_gone, 6},
                        {HoldEnd::timed_out, 1}}),
            true, answered, "9 of 10"},
           {"eight of nine decided, one waited for too long", held_answered(0.9),
            held_until({{HoldEnd::acknowledged, 8}, {HoldEnd::timed_out, 1}}), false, answered, "8 of 9"},
           {"eight of nine decided, one without its controller", held_answered(0.9),
            held_until({{HoldEnd::sent_away, 8}, {HoldEnd::session_lost, 1}}), false, answered, "8 of 9"},
           {"none held", held_answered(0.9), held_until({}), false, answered, "0 of 0"},
       }) {
    Site site = site_;
    site.expectations.steering = c.expected;
    SteeringFigures all = figures();
    c.arrange(all);
    const auto checks = check_steering(site, all);
    ASSERT_EQ(checks.size(), 1U) << c.label;
    EXPECT_EQ(checks[0].passed, c.passed) << c.label;
    EXPECT_EQ(checks[0].name, c.name) << c.label;
    EXPECT_EQ(checks[0].measured, c.measured) << c.label;
  }
}

TEST_F(SteeringFiguresTest, ChecksNothingThatTheSiteDoesNotAskFor) {
  EXPECT_TRUE(check_steering(site_, figures()).empty());
}

// A third AP hangs in the room, whose radio at 5 GHz is off, and its radios are not in the order of their ids.
TEST_F(SteeringFiguresTest, ARadioThatIsOffHasNoLoad) {
  Site site = site_;
  site.access_points.push_back(site.access_points[0]);
  std::vector<Radio>& radios = site.access_points[2].radios;
  radios[1].enabled = false;
  std::swap(radios[0], radios[2]);
  site.expectations.steering = spread_shrinks_by(1);
  SteeringLedger ledger(site, *site.steering);
  for (const SteeringEvent& each :
       {joined(0, ann, a5), joined(0, bob, a5), joined(0, walker, b5), moved(50'000, bob, a5, b5, Cause::transition)}) {
    ledger.take(each);
  }
  const SteeringFigures all = ledger.figures(160'000);
  std::vector<Place> places;
  for (const RadioLoad& each : all.loads) {
    places.push_back(each.place);
  }
  EXPECT_EQ(places, (std::vector<Place>{{0, 0}, a5, {0, 2}, {1, 0}, b5, b6, {2, 0}, {2, 2}}));
  const auto checks = check_steering(site, all);
  ASSERT_EQ(checks.size(), 1U);
  EXPECT_EQ(checks[0].measured, "1 to 2 -> 1 to 2");
}

class SteeringReportTest : public SteeringFiguresTest {
 protected:
  // Ann is asked to move, Bob is held back and sent away, and somebody walks from B to A and back.
  void play() {
    SteeringEvent again = joined(52'000, bob, b5, Cause::sent_away);
    again.unserved = 1'200;
    take({joined(0, walker, b5), joined(5'000, ann, a5), held(joined(50'000, bob, a5)),
          released(50'800, bob, a5, HoldEnd::sent_away, 800), left(50'800, bob, a5, Cause::sent_away),
          turned_away(51'000, bob, a5, Cause::sent_away), again, moved(60'000, ann, a5, b5, Cause::transition),
          moved(70'000, walker, b5, a5, Cause::own_choice), moved(90'000, walker, a5, b5, Cause::own_choice)});
  }
};

TEST_F(SteeringReportTest, PrintsTheFigures) {
  play();
  EXPECT_EQ(
      steering_table(site_, *site_.steering, figures(), {{"all is well", "1 of 1", true}, {"or not", "0", false}}),
      R"(
lab: the clients after 160 s

AP           room               band       clients at 40 s   highest   now
A            West               5 GHz                    1         2     0
B            West               5 GHz                    1         3     3
(4 radios have had no client)

moves by cause      own choice 2, transition 1, sent away 1
ordered moves       2 of 2 succeeded; 0 undone within a minute
  transition        1 of 1; 0 declined, 0 given up, 0 turned away at the other radio
  sent away         1 of 1; 0 back on the same radio at once, 0 found none; longest gap 1.2 s
transitions         3 fast, 1 full
  02:c1:00:00:00:09 walks: 2 fast, 0 full
held associations   0 acknowledged, 1 sent away, 0 client left, 0 radio gone, 0 timed out, 0 session lost, 0 wait; longest 0.8 s
turned away         1; 0 let in for good since they kept trying

ok      all is well: 1 of 1
FAILED  or not: 0
)");
}

TEST_F(SteeringReportTest, PrintsNoLoadBeforeItsTime) {
  take({joined(0, ann, a5)});
  Site site = site_;
  site.rooms.clear();
  EXPECT_EQ(steering_table(site, *site.steering, figures(30'000), {}), R"(
lab: the clients after 30 s

AP           room               band       clients at 40 s   highest   now
A                               5 GHz                    -         1     1
(5 radios have had no client)

moves by cause      none
ordered moves       0 of 0 succeeded; 0 undone within a minute
  transition        0 of 0; 0 declined, 0 given up, 0 turned away at the other radio
  sent away         0 of 0; 0 back on the same radio at once, 0 found none; longest gap 0.0 s
transitions         0 fast, 0 full
  02:c1:00:00:00:09 walks: 0 fast, 0 full
held associations   0 acknowledged, 0 sent away, 0 client left, 0 radio gone, 0 timed out, 0 session lost, 0 wait; longest 0.0 s
turned away         0; 0 let in for good since they kept trying
)");
}

TEST_F(SteeringReportTest, WritesTheFiguresAsJson) {
  play();
  Site site = site_;
  site.access_points.resize(1);
  SteeringFigures all = figures();
  all.loads.resize(2);
  EXPECT_EQ(steering_json(site, *site.steering, all, {{"all is well", "1 of 1", true}}), R"({
  "site": "two",
  "domain": "lab",
  "seed": 7,
  "seconds": {
    "before": 40.0,
    "now": 160.0
  },
  "radios": [
    {
      "ap": "A",
      "room": "West",
      "radio": 0,
      "band": 2,
      "before": 0,
      "highest": 0,
      "now": 0
    },
    {
      "ap": "A",
      "room": "West",
      "radio": 1,
      "band": 5,
      "before": 1,
      "highest": 2,
      "now": 0
    }
  ],
  "moves": {
    "own_choice": 2,
    "came_back": 0,
    "transition": 1,
    "sent_away": 1,
    "out_of_reach": 0,
    "radio_gone": 0,
    "found_none_for_a_while": 0
  },
  "ordered": {
    "given": 2,
    "succeeded": 2,
    "undone_within_a_minute": 0,
    "transition": {
      "given": 1,
      "succeeded": 1,
      "declined": 0,
      "given_up": 0,
      "turned_away": 0
    },
    "sent_away": {
      "given": 1,
      "succeeded": 1,
      "back_at_once": 0,
      "lost": 0,
      "longest_gap": 1.2
    }
  },
  "transitions": {
    "fast": 3,
    "full": 1
  },
  "walkers": [
    {
      "mac": "02:c1:00:00:00:09",
      "fast": 2,
      "full": 0
    }
  ],
  "held": {
    "acknowledged": 0,
    "sent_away": 1,
    "client_left": 0,
    "radio_gone": 0,
    "timed_out": 0,
    "session_lost": 0,
    "waiting": 0,
    "longest": 0.8
  },
  "refused": {
    "turned_away": 1,
    "let_in_for_good": 0
  },
  "checks": [
    {
      "name": "all is well",
      "measured": "1 of 1",
      "passed": true
    }
  ]
}
)");
}

TEST_F(SteeringReportTest, WritesNothingWhereThereIsNothingYet) {
  Site site = site_;
  site.rooms.clear();
  const auto json = nlohmann::json::parse(steering_json(site, *site.steering, figures(39'000), {}));
  EXPECT_TRUE(json["radios"][0]["before"].is_null());
  EXPECT_TRUE(json["radios"][0]["room"].is_null());
  EXPECT_EQ(json["checks"], nlohmann::json::array());
}

}  // namespace
}  // namespace sim
