#include "model/FbtLinks.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "json/JsonWriter.h"

namespace rrm::testing {
namespace {

FbtLink link_named(const std::string& name) {
  return {"r0 " + name, "r1 " + name, "key " + name};
}

FbtLinks links_named(const std::vector<std::string>& names) {
  FbtLinks links;
  for (const std::string& name : names) links.push_back(link_named(name));
  return links;
}

std::vector<FbtLink> texts_named(const std::vector<std::string>& names) {
  std::vector<FbtLink> texts;
  for (const std::string& name : names) texts.push_back(link_named(name));
  return texts;
}

TEST(FbtLinkLists, ANewListIsEmpty) {
  const FbtLinks links;
  EXPECT_TRUE(links.empty());
  EXPECT_EQ(links.size(), 0u);
  EXPECT_EQ(links.begin(), links.end());
  EXPECT_EQ(links, std::vector<FbtLink>());
}

TEST(FbtLinkLists, LinksKeepTheOrderInWhichTheyWereAdded) {
  const FbtLinks links = links_named({"b", "a", "b"});
  EXPECT_EQ(links, texts_named({"b", "a", "b"}));
  EXPECT_EQ(*links[1], link_named("a"));
  EXPECT_FALSE(links == texts_named({"b", "a"}));
  EXPECT_FALSE(links == texts_named({"b", "a", "c"}));
}

TEST(FbtLinkLists, EqualLinksAreOneObjectInWhateverList) {
  const FbtLinks some = links_named({"a", "b"});
  const FbtLinks others = links_named({"b", "a"});
  EXPECT_EQ(some[0].get(), others[1].get());
  EXPECT_EQ(some[1].get(), others[0].get());
  EXPECT_EQ(share_link(link_named("a")).get(), some[0].get());
}

TEST(FbtLinkLists, EachOfTheThreeTextsMakesAnotherLink) {
  const FbtLink link = link_named("a");
  const SharedFbtLink shared = share_link(link);
  for (std::string FbtLink::*const text :
       {&FbtLink::remote_r0_kh_id, &FbtLink::remote_r1_kh_id, &FbtLink::remote_r1_kh_key}) {
    FbtLink other = link;
    other.*text += "!";
    EXPECT_NE(share_link(other).get(), shared.get());
    EXPECT_EQ(*share_link(other), other);
  }
}

TEST(FbtLinkLists, ALinkIsGoneWithTheLastListThatHoldsIt) {
  const std::size_t before = shared_link_count();
  std::weak_ptr<const FbtLink> gone = share_link(link_named("gone"));
  EXPECT_TRUE(gone.expired());
  EXPECT_EQ(shared_link_count(), before);

  FbtLinks links = links_named({"a", "b", "a"});
  FbtLinks copy = links;
  EXPECT_EQ(shared_link_count(), before + 2);
  links.clear();
  EXPECT_EQ(shared_link_count(), before + 2);
  copy.erase_if([](const SharedFbtLink& link) { return *link == link_named("a"); });
  EXPECT_EQ(shared_link_count(), before + 1);
  copy.clear();
  EXPECT_EQ(shared_link_count(), before);
  EXPECT_EQ(*share_link(link_named("a")), link_named("a"));
}

TEST(FbtLinkLists, LinksInUseOutliveAnyNumberOfForgottenOnes) {
  const FbtLinks held = links_named({"a", "b"});
  const SharedFbtLink a = held[0];
  for (int i = 0; i < 10000; ++i) EXPECT_EQ(share_link(link_named(std::to_string(i))).use_count(), 1);
  EXPECT_EQ(share_link(link_named("a")).get(), a.get());
  EXPECT_EQ(held, texts_named({"a", "b"}));
}

TEST(FbtLinkLists, NoChangeOfACopyIsSeenInTheOriginal) {
  const FbtLinks links = links_named({"a", "b", "c"});
  const std::vector<FbtLink> texts = texts_named({"a", "b", "c"});
  FbtLinks added = links;
  added.push_back(link_named("d"));
  FbtLinks erased = links;
  erased.erase(erased.begin() + 1);
  FbtLinks emptied = links;
  emptied.erase_if([](const SharedFbtLink&) { return true; });
  FbtLinks roomy = links;
  roomy.reserve(100);
  EXPECT_EQ(links, texts);
  EXPECT_EQ(added, texts_named({"a", "b", "c", "d"}));
  EXPECT_EQ(erased, texts_named({"a", "c"}));
  EXPECT_TRUE(emptied.empty());
  EXPECT_EQ(roomy, texts);
}

TEST(FbtLinkLists, EachLinkIsAskedAboutOnceInOrder) {
  const std::vector<std::string> names = {"a", "b", "c", "d"};
  for (unsigned pattern = 0; pattern < 16; ++pattern) {
    FbtLinks links = links_named(names);
    std::vector<std::string> asked;
    std::vector<std::string> kept;
    links.erase_if([&](const SharedFbtLink& link) {
      asked.push_back(link->remote_r0_kh_id.substr(3));
      const bool fits = (pattern >> (asked.size() - 1) & 1) != 0;
      if (!fits) kept.push_back(asked.back());
      return fits;
    });
    EXPECT_EQ(asked, names) << pattern;
    EXPECT_EQ(links, texts_named(kept)) << pattern;
  }
}

TEST(FbtLinkLists, AQuestionThatFailsLeavesTheListAsItWas) {
  FbtLinks links = links_named({"a", "b", "c"});
  int asked = 0;
  const auto fails_at_last = [&](const SharedFbtLink&) { return ++asked < 3 ? true : throw std::bad_alloc(); };
  EXPECT_THROW(links.erase_if(fails_at_last), std::bad_alloc);
  EXPECT_EQ(links, texts_named({"a", "b", "c"}));
}

TEST(FbtLinkLists, ALinkIsWrittenAsAnObject) {
  JsonWriter writer;
  {
    JsonWriter links = JsonWriter::array(writer, "links");
    link_named("a").write(links);
  }
  EXPECT_STREQ(writer.to_string(),
               R"({"links":[{"remote-r0-kh-id":"r0 a","remote-r1-kh-id":"r1 a","remote-r1-kh-key":"key a"}]})");
}

// Domains are worked on by threads of their own, which hold the same links.
TEST(FbtLinkLists, ListsOfDifferentThreadsShareTheirLinks) {
  const std::vector<std::string> names = {"a", "b", "c", "d", "e", "f", "g", "h"};
  const std::size_t before = shared_link_count();
  const FbtLinks common = links_named(names);
  std::vector<FbtLinks> results(4);
  std::vector<std::thread> threads;
  for (FbtLinks& result : results) {
    threads.emplace_back([&result, &names, copy = common]() mutable {
      for (int i = 0; i < 200; ++i) {
        for (const std::string& name : names) copy.push_back(link_named(name + std::to_string(i % 7)));
        copy.erase_if([](const SharedFbtLink& link) { return link->remote_r0_kh_id.size() > 4; });
      }
      result = std::move(copy);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const FbtLinks& result : results) EXPECT_EQ(result, texts_named(names));
  EXPECT_EQ(common, texts_named(names));
  EXPECT_EQ(shared_link_count(), before + names.size());
}

// One thread lets the last one go while another asks for it.
TEST(FbtLinkLists, ALinkMayEndWhileItIsAskedForAgain) {
  const std::size_t before = shared_link_count();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 5000; ++round) EXPECT_EQ(*share_link(link_named("one")), link_named("one"));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(shared_link_count(), before);
}

}  // namespace
}  // namespace rrm::testing
