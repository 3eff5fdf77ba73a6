#include "model/ApStorage.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

class ApStorageTest : public ::testing::Test {
 protected:
  std::shared_ptr<ApEntry> ap_with_vaps(const std::string& address) const {
    return an_ap()
        .mac(address)
        .with_radio(a_radio().channel(1).vap(a_vap("guest").id(1)).vap(a_vap("office").id(2)))
        .with_radio(a_radio().channel(36).disabled().vap(a_vap("office").id(1)))
        .with_radio(a_radio().channel(44).vap(a_vap("office").id(1)))
        .build(config);
  }

  DomainConfig config;
  Capture capture;
  ApStorage storage;
};

TEST_F(ApStorageTest, FindsAnApByEveryAddressOfItsEnabledRadios) {
  const auto ap = ap_with_vaps("00:11:22:00:00:00");
  storage.insert_ap(ap);
  struct Case {
    const char* address;
    std::int32_t radio;  // -1: nobody
  };
  for (const Case& test : std::vector<Case>{{"00:11:22:00:00:00", 0},
                                            {"00:11:22:00:00:01", 0},
                                            {"00:11:22:00:00:02", 0},
                                            {"00:11:22:00:00:03", -1},
                                            {"00:11:22:00:00:10", -1},
                                            {"00:11:22:00:00:11", -1},
                                            {"00:11:22:00:00:20", 2},
                                            {"00:11:22:00:00:21", 2},
                                            {"02:11:22:00:00:21", 2},
                                            {"02:11:22:00:00:10", -1},
                                            {"01:11:22:00:00:00", -1}}) {
    EXPECT_EQ(storage.radio_id_of(mac(test.address)), test.radio) << test.address;
    EXPECT_EQ(storage.find(mac(test.address)), test.radio >= 0 ? ap : nullptr) << test.address;
  }
  EXPECT_EQ(storage.size(), 5U);
  EXPECT_EQ(capture.lines(LOG_DUMP).back(), "AP 00:11:22:00:00:00, total size=5");
}

TEST_F(ApStorageTest, AnAddressAsItStandsComesBeforeItsTwin) {
  const auto plain = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio()).build(config);
  const auto local = an_ap().mac("02:11:22:00:00:00").with_radio(a_radio()).build(config);
  storage.insert_ap(plain);
  storage.insert_ap(local);
  EXPECT_EQ(storage.find(plain->mac), plain);
  EXPECT_EQ(storage.find(local->mac), local);
  storage.erase_ap(local);
  EXPECT_EQ(storage.find(local->mac), plain);
}

TEST_F(ApStorageTest, IndexingAgainLeavesNoStaleAddress) {
  const auto ap = ap_with_vaps("00:11:22:00:00:00");
  storage.insert_ap(ap);
  ap->radios.list[0].status = false;
  ap->radios.list[1].status = true;
  ap->radios.list[2].vaps.clear();
  storage.insert_ap(ap);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:00")), nullptr);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:02")), nullptr);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:21")), nullptr);
  EXPECT_EQ(storage.radio_id_of(mac("00:11:22:00:00:11")), 1);
  EXPECT_EQ(storage.radio_id_of(mac("00:11:22:00:00:20")), 2);
  EXPECT_EQ(storage.size(), 3U);
}

TEST_F(ApStorageTest, AnAddressThatTwoApsClaimStaysWithTheFirst) {
  const auto first = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio().vap(a_vap("a").id(5))).build(config);
  const auto second = an_ap().mac("00:11:22:00:00:05").with_radio(a_radio()).build(config);
  storage.insert_ap(first);
  storage.insert_ap(second);
  EXPECT_EQ(storage.find(second->mac), first);
  EXPECT_EQ(storage.size(), 2U);
  storage.erase_ap(first);
  EXPECT_EQ(storage.find(second->mac), nullptr);
  storage.insert_ap(second);
  EXPECT_EQ(storage.find(second->mac), second);
}

TEST_F(ApStorageTest, WithinAnApTheFirstRadioKeepsAnAddress) {
  const auto ap = an_ap()
                      .mac("00:11:22:00:00:00")
                      .with_radio(a_radio().vap(a_vap("a").mac("00:11:22:00:00:10")))
                      .with_radio(a_radio())
                      .build(config);
  storage.insert_ap(ap);
  EXPECT_EQ(storage.radio_id_of(mac("00:11:22:00:00:10")), 0);
}

TEST_F(ApStorageTest, ForgetsTheVeryObjectNotItsNamesake) {
  const auto ap = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio()).build(config);
  const auto namesake = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio().vap(a_vap("a").id(1))).build(config);
  storage.insert_ap(ap);
  storage.insert_ap(namesake);
  storage.erase_ap(namesake);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:00")), ap);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:01")), nullptr);
  storage.insert_ap(namesake);
  storage.erase_ap(ap);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:00")), nullptr);
  EXPECT_EQ(storage.find(mac("00:11:22:00:00:01")), namesake);
}

TEST_F(ApStorageTest, NoApIsNothing) {
  storage.insert_ap(nullptr);
  storage.erase_ap(nullptr);
  EXPECT_TRUE(capture.lines().empty());
  EXPECT_EQ(storage.size(), 0U);
}

TEST_F(ApStorageTest, ErasingIsTraced) {
  const auto ap = ap_with_vaps("00:11:22:00:00:00");
  storage.insert_ap(ap);
  capture.clear();
  storage.erase_ap(ap);
  EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_DUMP, "AP 00:11:22:00:00:00, total size=0"}}));
}

TEST_F(ApStorageTest, KnowsEveryAddressThatResolvesToARadio) {
  const auto ap = ap_with_vaps("00:11:22:00:00:00");
  const auto twin = an_ap().mac("02:11:22:00:00:21").with_radio(a_radio()).build(config);
  storage.insert_ap(ap);
  storage.insert_ap(twin);
  EXPECT_EQ(storage.addresses_of(ap->mac, 2),
            (std::vector<MacAddr>{mac("00:11:22:00:00:20"), mac("00:11:22:00:00:21"), mac("02:11:22:00:00:20")}));
  EXPECT_TRUE(storage.addresses_of(ap->mac, 1).empty());
  EXPECT_TRUE(storage.addresses_of(mac("00:11:22:00:00:20"), 0).empty());
}

// The index as one would keep it without knowing the keys of an AP: every removal walks over all records.
class PlainIndex {
 public:
  void insert_ap(const std::shared_ptr<ApEntry>& ap) {
    erase_ap(ap);
    for (const Radio& radio : ap->radios.list) {
      if (!radio.status) continue;
      records_.try_emplace(radio.mac, ap, radio.id);
      for (const auto& [ssid, vap] : radio.vaps) records_.try_emplace(vap.mac, ap, radio.id);
    }
  }
  void erase_ap(const std::shared_ptr<ApEntry>& ap) {
    std::erase_if(records_, [&](const auto& record) { return record.second.first == ap; });
  }
  std::pair<std::shared_ptr<ApEntry>, std::int32_t> find(const MacAddr& address) const {
    for (const MacAddr& tried : {address, address.with_local_bit_flipped()}) {
      const auto record = records_.find(tried);
      if (record != records_.end()) return record->second;
    }
    return {nullptr, -1};
  }
  std::size_t size() const { return records_.size(); }

 private:
  std::map<MacAddr, std::pair<std::shared_ptr<ApEntry>, std::int32_t>> records_;
};

MacAddr random_address(std::mt19937& random) {
  return MacAddr::from_number((random() % 2 == 0 ? 0x001122000000 : 0x021122000000) + random() % 24);
}

void shuffle_addresses(ApEntry& ap, std::mt19937& random) {
  for (Radio& radio : ap.radios.list) {
    radio.status = random() % 3 != 0;
    radio.mac = random_address(random);
    radio.vaps.clear();
    for (const char* ssid : {"a", "b"}) {
      if (random() % 2 == 0) radio.vaps.insert(a_vap(ssid).mac(random_address(random).to_string()).build());
    }
  }
}

TEST_F(ApStorageTest, AgreesWithAnIndexThatWalksOverAllRecords) {
  std::mt19937 random(7);
  PlainIndex plain;
  std::vector<std::shared_ptr<ApEntry>> aps;
  for (int i = 0; i < 6; ++i) {
    aps.push_back(an_ap().mac(MacAddr::from_number(static_cast<std::uint64_t>(i % 4)).to_string()).build(config));
  }
  for (int step = 0; step < 3000; ++step) {
    const auto& ap = aps[random() % aps.size()];
    if (random() % 3 == 0) {
      storage.erase_ap(ap);
      plain.erase_ap(ap);
    } else {
      shuffle_addresses(*ap, random);
      storage.insert_ap(ap);
      plain.insert_ap(ap);
    }
    ASSERT_EQ(storage.size(), plain.size()) << step;
    for (int probe = 0; probe < 10; ++probe) {
      const MacAddr address = random_address(random);
      ASSERT_EQ(storage.find(address), plain.find(address).first) << step;
      ASSERT_EQ(storage.radio_id_of(address), plain.find(address).second) << step;
    }
    if (step % 50 == 0) capture.clear();
  }
}

}  // namespace
}  // namespace rrm::testing
