#include "model/ApMap.h"

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

using Texts = std::vector<std::string>;

class ApMapTest : public ::testing::Test {
 protected:
  // An AP on air: 00:11:22:00:NN:00, one radio on channel 36 with a VAP at its address plus 1.
  ApBuilder on_air(int number) const {
    return an_ap().mac(address(number)).with_radio(a_radio().channel(36).vap(a_vap("office").id(1)));
  }
  static std::string address(int number) {
    return MacAddr::from_number(0x001122000000 + static_cast<std::uint64_t>(number) * 0x100).to_string();
  }
  static Texts macs(const ApMap& set) {
    Texts texts;
    for (const auto& [mac, ap] : set) texts.push_back(mac.to_string());
    return texts;
  }

  DomainConfig config;
  Capture capture;
};

TEST_F(ApMapTest, IsWalkedInMacOrder) {
  const ApMap set = a_set({on_air(3).build(config), on_air(1).build(config), on_air(2).build(config)});
  EXPECT_EQ(macs(set), (Texts{address(1), address(2), address(3)}));
  EXPECT_EQ(set.size(), 3U);
  EXPECT_FALSE(set.empty());
}

TEST_F(ApMapTest, FindsAnApByAnyOfItsAddresses) {
  const auto ap = an_ap()
                      .mac("00:11:22:00:00:00")
                      .with_radio(a_radio().disabled().vap(a_vap("office").id(1)))
                      .with_radio(a_radio().channel(36).vap(a_vap("office").id(2)))
                      .build(config);
  const ApMap set = a_set({ap});
  struct Case {
    const char* label;
    const char* address;
    bool exact, any, contained;
  };
  for (const Case& test : std::vector<Case>{{"its own", "00:11:22:00:00:00", true, true, false},
                                            {"its own, flipped", "02:11:22:00:00:00", false, false, false},
                                            {"a VAP of a disabled radio", "00:11:22:00:00:01", false, false, false},
                                            {"a radio", "00:11:22:00:00:10", false, true, true},
                                            {"a radio, flipped", "02:11:22:00:00:10", false, true, true},
                                            {"a VAP", "00:11:22:00:00:12", false, true, true},
                                            {"a VAP, flipped", "02:11:22:00:00:12", false, true, true},
                                            {"a disabled radio", "00:11:22:00:00:20", false, false, false},
                                            {"nobody's", "00:11:22:00:00:30", false, false, false}}) {
    EXPECT_EQ(set.find(mac(test.address)), test.exact ? ap : nullptr) << test.label;
    EXPECT_EQ(set.find_by_any_mac(mac(test.address)), test.any ? ap : nullptr) << test.label;
    EXPECT_EQ(set.contains(mac(test.address)), test.contained) << test.label;
  }
}

TEST_F(ApMapTest, AnApKeptUnderAnotherAddressIsNotFoundByTheRest) {
  const auto ap = on_air(1).build(config);
  ApMap set;
  set.insert(mac("00:11:22:00:01:01"), ap);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:01")), ap);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:00")), nullptr);
}

std::string error_of(const ApMap& set, const MacAddr& address, std::uint32_t session) {
  try {
    return set.find_for_session(address, a_session(session)) != nullptr ? "found" : "empty";
  } catch (const std::out_of_range& error) {
    return error.what();
  }
}

TEST_F(ApMapTest, AScanAnswerMustComeFromTheApsOwnMacAndSession) {
  const ApMap set = a_set({on_air(1).session(7).build(config)});
  EXPECT_EQ(error_of(set, mac("00:11:22:00:01:00"), 7), "found");
  EXPECT_EQ(error_of(set, mac("00:11:22:00:01:00"), 8), "invalid session");
  EXPECT_EQ(error_of(set, mac("00:11:22:00:01:01"), 7), "AP not found");
  EXPECT_EQ(error_of(set, mac("00:11:22:00:02:00"), 7), "AP not found");
}

TEST_F(ApMapTest, SessionsAreToldApartByTheirIdAlone) {
  const auto ap = on_air(1).session(7).build(config);
  BaseSession session = a_session(7);
  session.tsi = 3;
  EXPECT_EQ(a_set({ap}).find_for_session(ap->mac, session), ap);
}

TEST_F(ApMapTest, ATakenKeyKeepsItsEntryAndTheNewOneIsIndexed) {
  const auto first = an_ap().mac(address(1)).with_radio(a_radio()).build(config);
  const auto second = an_ap().mac(address(1)).with_radio(a_radio().vap(a_vap("office").id(1))).build(config);
  ApMap set = a_set({first, second});
  EXPECT_EQ(set.size(), 1U);
  EXPECT_EQ(set.find(first->mac), first);
  EXPECT_EQ(set.storage().find(mac("00:11:22:00:01:01")), second);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:01")), first);
}

TEST_F(ApMapTest, AChangedApIsIndexedAnew) {
  const auto ap = on_air(1).build(config);
  ApMap set = a_set({ap});
  ap->radios.list[0].vaps.clear();
  ap->radios.list[2].status = true;
  set.reindex(ap);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:01")), nullptr);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:20")), ap);
}

TEST_F(ApMapTest, AnApIsErasedFromIndexAndMap) {
  const auto ap = on_air(1).build(config);
  ApMap set = a_set({ap, on_air(2).build(config)});
  set.erase_from_index(ap);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:01:01")), nullptr);
  const auto next = set.erase_node(set.begin());
  EXPECT_EQ(next->first, mac(address(2)));
  EXPECT_EQ(macs(set), Texts{address(2)});
  EXPECT_TRUE(set.contains(mac("00:11:22:00:02:01")));
  EXPECT_EQ(set.storage().size(), 2U);
}

TEST_F(ApMapTest, ATickErasesTheApsWhoseTimeIsUp) {
  ApMap set = a_set({on_air(1).ttl(1).build(config), on_air(2).ttl(3).build(config), on_air(3).ttl(0).build(config)});
  EXPECT_EQ(set.tick_ttl(), 2U);
  EXPECT_EQ(macs(set), Texts{address(2)});
  EXPECT_EQ(set.find(mac(address(2)))->delete_ttl, 2);
  EXPECT_FALSE(set.contains(mac(address(1))));
  EXPECT_EQ(set.tick_ttl(), 0U);
  EXPECT_EQ(set.tick_ttl(), 1U);
  EXPECT_TRUE(set.empty());
}

TEST_F(ApMapTest, ADroppedSessionTakesItsApsAlong) {
  ApMap set = a_set(
      {on_air(1).session(7).build(config), on_air(2).session(8).build(config), on_air(3).session(7).build(config)});
  set.drop_session(a_session(7));
  EXPECT_EQ(macs(set), Texts{address(2)});
  EXPECT_FALSE(set.contains(mac(address(3))));
}

TEST_F(ApMapTest, TheApsOfALostSessionWaitForTheirReturn) {
  const ManualClock clock;
  const auto gone = on_air(1)
                        .session(7)
                        .with([](ApEntry& ap) {
                          for (Radio& radio : ap.radios.list) {
                            radio.problist.add(mac("0a:00:00:00:00:01"), 30);
                            radio.assoc.add_client(mac("0a:00:00:00:00:02"), -60, "office", false, false);
                            radio.assoc.add_expected(mac("0a:00:00:00:00:03"), {});
                          }
                        })
                        .build(config);
  ApMap set = a_set({gone, on_air(2).session(8).build(config)});
  ApMap deleted;
  set.move_session_to(deleted, a_session(7));
  EXPECT_EQ(macs(set), Texts{address(2)});
  EXPECT_EQ(macs(deleted), Texts{address(1)});
  EXPECT_FALSE(set.contains(gone->mac));
  EXPECT_TRUE(deleted.contains(gone->mac));
  EXPECT_EQ(gone->delete_ttl, 30);
  for (const Radio& radio : gone->radios.list) {
    EXPECT_TRUE(radio.problist.members().empty());
    EXPECT_TRUE(radio.problist.changes().empty());
    EXPECT_EQ(radio.assoc.load(), 0);
  }
}

TEST_F(ApMapTest, AwayTicksAreWholeTicks) {
  struct Case {
    std::int32_t away_timeout, ticks;
  };
  for (const Case& test : std::vector<Case>{{300, 30}, {309, 30}, {10, 1}, {9, 0}, {3600, 360}}) {
    config.away_timeout = test.away_timeout;
    EXPECT_EQ(away_ticks(config), test.ticks) << test.away_timeout;
  }
}

struct MoveCase {
  const char* label;
  std::function<std::size_t(ApMap&, ApMap&)> move;
  ApBuilder goes, stays;
};

TEST_F(ApMapTest, ApsAreSetAside) {
  const auto answered = [] { return an_ap().received(); };
  const auto radio = [] { return a_radio().channel(36); };
  const std::vector<MoveCase> cases = {
      {"inactive", [](ApMap& from, ApMap& to) { return from.move_inactive_to(to, 9); }, an_ap(), an_ap().active()},
      {"no radio on a channel", [](ApMap& from, ApMap& to) { return from.move_without_radio_to(to, 9); },
       an_ap().with_radio(a_radio().channel(0)), an_ap().with_radio(radio())},
      {"no enabled radio", [](ApMap& from, ApMap& to) { return from.move_without_radio_to(to, 9); },
       an_ap().with_radio(radio().disabled()), an_ap().with_radio(radio().disabled()).with_radio(radio())},
      {"silent", [](ApMap& from, ApMap& to) { return from.move_silent_to(to, 9); }, an_ap().with_radio(radio()),
       answered().with_radio(radio())},
      {"heard from, but without a radio", [](ApMap& from, ApMap& to) { return from.move_silent_to(to, 9); },
       answered().with_radio(radio().disabled()), answered().with_radio(radio())},
  };
  for (MoveCase test : cases) {
    ApMap set = a_set({test.goes.mac(address(1)).build(config), test.stays.mac(address(2)).build(config),
                       test.goes.mac(address(3)).build(config)});
    ApMap aside = a_set({on_air(4).build(config)});
    EXPECT_EQ(test.move(set, aside), 2U) << test.label;
    EXPECT_EQ(macs(set), Texts{address(2)}) << test.label;
    EXPECT_EQ(macs(aside), (Texts{address(1), address(3), address(4)})) << test.label;
    EXPECT_EQ(aside.find(mac(address(1)))->delete_ttl, 9) << test.label;
    EXPECT_EQ(set.find(mac(address(2)))->delete_ttl, 0) << test.label;
  }
}

TEST_F(ApMapTest, AMoveTakesTheIndexAlong) {
  ApMap set = a_set({on_air(1).build(config)});
  ApMap aside;
  set.move_inactive_to(aside, 9);
  EXPECT_FALSE(set.contains(mac("00:11:22:00:01:01")));
  EXPECT_TRUE(aside.contains(mac("00:11:22:00:01:01")));
}

TEST_F(ApMapTest, AMovedApKeepsTheKeyItWasKeptUnder) {
  ApMap set;
  set.insert(mac("00:11:22:00:01:01"), on_air(1).build(config));
  ApMap aside;
  set.move_inactive_to(aside, 9);
  EXPECT_EQ(macs(aside), Texts{"00:11:22:00:01:01"});
}

TEST_F(ApMapTest, AllReturnFromAnotherSet) {
  const auto here = on_air(1).build(config);
  const auto namesake = an_ap().mac(address(1)).with_radio(a_radio().vap(a_vap("office").id(5))).build(config);
  const auto other = on_air(2).ttl(4).build(config);
  ApMap set = a_set({here});
  ApMap aside = a_set({namesake, other});
  set.take_all_from(aside);
  EXPECT_EQ(macs(set), (Texts{address(1), address(2)}));
  EXPECT_EQ(set.find(here->mac), here);
  EXPECT_EQ(set.storage().find(mac("00:11:22:00:01:05")), namesake);
  EXPECT_EQ(set.find_by_any_mac(mac("00:11:22:00:02:01")), other);
  EXPECT_EQ(other->delete_ttl, 4);
  EXPECT_TRUE(aside.empty());
  EXPECT_EQ(aside.storage().size(), 0U);
}

TEST_F(ApMapTest, ACloneHasItsOwnEntriesUnderTheSameKeys) {
  ApMap set = a_set({on_air(1).session(7).build(config)});
  set.insert(mac("00:11:22:00:02:01"), on_air(2).build(config));
  const ApMap clone = set.clone();
  EXPECT_EQ(macs(clone), macs(set));
  EXPECT_EQ(clone.storage().size(), set.storage().size());
  const auto copy = clone.find_by_any_mac(mac("00:11:22:00:01:01"));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, set.find(mac(address(1))));
  EXPECT_EQ(copy->session, no_session);
}

TEST_F(ApMapTest, ACyclesFlagsAreReset) {
  const auto mark = [](ApEntry& ap) {
    for (Radio& radio : ap.radios.list) {
      radio.conflicted = true, radio.power_changed = -3;
      radio.problist.add(mac("0a:00:00:00:00:01"), 30);
    }
  };
  ApMap set = a_set(
      {on_air(1).active().received().with(mark).build(config), on_air(2).active().received().with(mark).build(config)});
  set.clear_received();
  for (const auto& [key, ap] : set) EXPECT_FALSE(ap->radios.received);
  for (const auto& [key, ap] : set) EXPECT_TRUE(ap->active);
  set.reset_cycle_flags();
  for (const auto& [key, ap] : set) {
    EXPECT_FALSE(ap->active);
    for (const Radio& radio : ap->radios.list) {
      EXPECT_FALSE(radio.conflicted);
      EXPECT_EQ(radio.power_changed, 0);
      EXPECT_EQ(radio.problist.members().size(), 1U);
    }
  }
  set.clear_probe_lists();
  for (const auto& [key, ap] : set) {
    for (const Radio& radio : ap->radios.list) EXPECT_TRUE(radio.problist.members().empty());
  }
}

TEST_F(ApMapTest, DumpsALineEach) {
  const ApMap set = a_set({on_air(2).build(config), on_air(1).build(config)});
  capture.clear();
  set.dump();
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "AP " + address(1)}, {LOG_TRACE, "AP " + address(2)}}));
}

TEST_F(ApMapTest, WritesTheFactoryRecordsWithTheKeys) {
  const ApMap set = a_set({an_ap()
                               .mac(address(1))
                               .board("NVA-1K")
                               .serial("SN7")
                               .with_radio(a_radio().disabled().vap(
                                   a_vap("office").id(1).r().keyholders("r0", "r1", "key").link("a", "b", "c")))
                               .build(config)});
  EXPECT_EQ(
      array_text([&](JsonWriter& array) { set.dump_factory_json(array); }),
      R"([{"board":"NVA-1K","mac":"00:11:22:00:01:00","serial":"SN7","hw":"1.0","radios":[)"
      R"({"id":0,"vaps":[{"id":1,"ssid":"office","mac":"00:11:22:00:01:01","mobility-domain":32255,)"
      R"("use_802dot11k":0,"use_802dot11r":1,"use_802dot11v":0,"fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1",)"
      R"("fbt-rrb-key":"key","fbt-links":[{"remote-r0-kh-id":"a","remote-r1-kh-id":"b","remote-r1-kh-key":"c"}]}]},)"
      R"({"id":1,"vaps":[]},{"id":2,"vaps":[]}]}])");
}

TEST_F(ApMapTest, WritesEachApAsItWritesItself) {
  const auto first = on_air(1).build(config);
  const auto second = on_air(2).build(config);
  const auto text = [](const ApEntry& ap) { return object_text([&](JsonWriter& object) { ap.dump_json(object); }); };
  EXPECT_EQ(array_text([&](JsonWriter& array) {
              a_set({second, first}).dump_json(array);
            }),
            "[" + text(*first) + "," + text(*second) + "]");
}

// How others hear a radio.

TEST_F(ApMapTest, ARadiosAddressIsTheOneThatTheFirstOtherHears) {
  const auto ap = on_air(1).hears("02:11:22:00:01:01", a_neighbour(-60, 36)).build(config);
  const auto deaf = on_air(2).hears("00:99:99:00:00:01", a_neighbour(-60, 36)).build(config);
  const auto second = on_air(3)
                          .hears("02:11:22:00:01:00", a_neighbour(-60, 36))
                          .hears("00:11:22:00:01:01", a_neighbour(-60, 36))
                          .build(config);
  const auto third = on_air(4).hears("00:11:22:00:01:00", a_neighbour(-60, 36)).build(config);
  const ApMap set = a_set({ap, deaf, second, third});
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 0), mac("00:11:22:00:01:01"));
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 0, third.get()), mac("00:11:22:00:01:00"));
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 0, deaf.get()), mac("00:11:22:00:01:00"));
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 0, ap.get()), mac("00:11:22:00:01:00"));
}

TEST_F(ApMapTest, WhereNobodyHearsARadioItsAddressIsItsMac) {
  const auto ap = on_air(1).build(config);
  const ApMap set = a_set({ap, on_air(2).hears("00:11:22:00:01:10", a_neighbour(-60, 36)).build(config)});
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 0), mac("00:11:22:00:01:00"));
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 1), mac("00:11:22:00:01:10"));
  EXPECT_EQ(visible_bssid_of_radio(set, *ap, 7), mac("00:11:22:00:01:00"));
}

// The same as it would be looked for without an index: every entry of every other AP is resolved.
MacAddr plainly_visible(const ApMap& set, const ApEntry& ap, std::int32_t radio_id) {
  for (const auto& [key, listener] : set) {
    if (listener->mac == ap.mac) continue;
    for (const auto& [address, neighbour] : listener->visible_members) {
      const auto owner = set.storage().find(address);
      if (set.storage().radio_id_of(address) == radio_id && owner != nullptr && owner->mac == ap.mac) return address;
    }
  }
  return ap.get_radio_mac(radio_id);
}

TEST_F(ApMapTest, AgreesWithALookAtEveryEntry) {
  std::mt19937 random(11);
  const auto random_address = [&] {
    return MacAddr::from_number((random() % 2 == 0 ? 0x001122000000 : 0x021122000000) + random() % 3 * 0x100 +
                                random() % 3 * 0x10 + random() % 4);
  };
  for (int trial = 0; trial < 300; ++trial) {
    ApMap set;
    for (int number = 0; number < 3; ++number) {
      const auto ap = on_air(number).with_radio(a_radio().channel(1).vap(a_vap("a").id(2))).build(config);
      ap->radios.list[0].vaps.insert(a_vap("b").mac(random_address().to_string()).build());
      for (unsigned i = random() % 4; i > 0; --i) ap->visible_members.insert(random_address(), {});
      set.insert(ap->mac, ap);
    }
    for (const auto& [key, ap] : set) {
      for (std::int32_t id = 0; id < 3; ++id) {
        ASSERT_EQ(visible_bssid_of_radio(set, *ap, id), plainly_visible(set, *ap, id)) << trial << ", radio " << id;
      }
    }
    capture.clear();
  }
}

}  // namespace
}  // namespace rrm::testing
