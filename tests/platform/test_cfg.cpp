// The controller's configuration tree: reading, building and printing.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "zal/cfg.h"

namespace zal {
namespace {

class PlatformCfg : public ::testing::Test {
 protected:
  const cfg_t* parse(const std::string& text) {
    tree_ = tree(text);
    return tree_.get();
  }
  static cfg_tree tree(const std::string& text) { return cfg_tree(cfg_parse_buffer(text.data(), text.size())); }
  static std::string text_of(const cfg_tree& tree) { return cfg_serialize_compact(tree.get()); }
  static int integer(const cfg_t* node) {
    int value = -7;
    EXPECT_TRUE(cfg_object_to_int(node, &value));
    return value;
  }

 private:
  cfg_tree tree_;
};

TEST_F(PlatformCfg, ATextThatIsNoJsonGivesNoTree) {
  for (const char* text : {"", "{", "[1,]", "nonsense", "{} {}"}) EXPECT_EQ(parse(text), nullptr) << text;
  EXPECT_NE(parse("{}"), nullptr);
}

TEST_F(PlatformCfg, APathFindsItsSubtreeOrNothing) {
  const cfg_t* root = parse(R"({"common":{"scpu":[3,1],"a/b":5}})");
  EXPECT_NE(cfg_get_subtree_from_path(root, "/common/scpu"), nullptr);
  EXPECT_EQ(integer(cfg_get_subtree_from_path(root, "/common/scpu/1")), 1);
  EXPECT_EQ(integer(cfg_get_subtree_from_path(root, "/common/a~1b")), 5);
  for (const char* path : {"/common/cpu", "common/scpu", "/common/scpu/2", "/common/scpu/x", "/common/scpu/0/0", "/~"})
    EXPECT_EQ(cfg_get_subtree_from_path(root, path), nullptr) << path;
}

TEST_F(PlatformCfg, OnlyAnArrayIsWalked) {
  const cfg_t* root = parse(R"({"array":[7,8],"empty":[],"object":{},"number":1})");
  cfg_array_iterator_t* walk = cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/array"));
  EXPECT_EQ(integer(cfg_next_array_iterator(walk)), 7);
  EXPECT_EQ(integer(cfg_next_array_iterator(walk)), 8);
  EXPECT_EQ(cfg_next_array_iterator(walk), nullptr);
  EXPECT_EQ(cfg_next_array_iterator(walk), nullptr);
  cfg_release_array_iterator(walk);

  cfg_array_iterator_t* empty = cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/empty"));
  EXPECT_EQ(cfg_next_array_iterator(empty), nullptr);
  cfg_release_array_iterator(empty);
  EXPECT_EQ(cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/object")), nullptr);
  EXPECT_EQ(cfg_alloc_array_iterator(cfg_get_subtree_from_path(root, "/number")), nullptr);
}

TEST_F(PlatformCfg, AnIntegerIsReadOnlyFromAnIntegerThatFits) {
  for (const auto& [text, value] : std::vector<std::pair<std::string, int>>{
           {"0", 0}, {"-1", -1}, {"2147483647", 2147483647}, {"-2147483648", -2147483647 - 1}}) {
    EXPECT_EQ(integer(parse(text)), value) << text;
  }
  for (const char* text :
       {"2147483648", "-2147483649", "18446744073709551615", "1.0", "\"1\"", "true", "null", "[1]", "{}"}) {
    int value = -7;
    EXPECT_FALSE(cfg_object_to_int(parse(text), &value)) << text;
    EXPECT_EQ(value, -7) << text;
  }
}

TEST_F(PlatformCfg, NullHandlesGiveNothing) {
  int value = -7;
  EXPECT_EQ(cfg_get_subtree_from_path(nullptr, "/a"), nullptr);
  EXPECT_EQ(cfg_alloc_array_iterator(nullptr), nullptr);
  EXPECT_EQ(cfg_next_array_iterator(nullptr), nullptr);
  EXPECT_FALSE(cfg_object_to_int(nullptr, &value));
  cfg_release_array_iterator(nullptr);
  cfg_release(nullptr);
  std::string key = "before";
  bool flag = true;
  EXPECT_EQ(cfg_get_value(nullptr, "a"), nullptr);
  EXPECT_EQ(cfg_get_size(nullptr), 0u);
  EXPECT_EQ(cfg_alloc_object_iterator(nullptr), nullptr);
  EXPECT_EQ(cfg_next_object_iterator(nullptr, &key), nullptr);
  cfg_release_object_iterator(nullptr);
  EXPECT_FALSE(cfg_object_to_bool(nullptr, &flag));
  EXPECT_FALSE(cfg_object_to_string(nullptr, &key));
  EXPECT_EQ(key, "before");
  EXPECT_FALSE(cfg_set_param(nullptr, "/a", 1));
  EXPECT_FALSE(cfg_set_empty_object(nullptr, "/a"));
  EXPECT_FALSE(cfg_set_empty_array(nullptr, "/a"));
  EXPECT_FALSE(cfg_add_element(nullptr, "/a", 1));
  EXPECT_EQ(cfg_serialize_compact(nullptr), "");
}

// Reading

TEST_F(PlatformCfg, AnObjectIsAskedByItsKeysAsTheyAre) {
  const cfg_t* root = parse(R"({"a/b":5,"":6,"array":[7]})");
  EXPECT_EQ(integer(cfg_get_value(root, "a/b")), 5);
  EXPECT_EQ(integer(cfg_get_value(root, "")), 6);
  EXPECT_EQ(cfg_get_value(root, "b"), nullptr);
  EXPECT_EQ(cfg_get_value(cfg_get_value(root, "array"), "0"), nullptr);
}

TEST_F(PlatformCfg, OnlyArraysAndObjectsHaveASize) {
  for (const auto& [text, size] : std::vector<std::pair<std::string, std::size_t>>{
           {"[]", 0}, {"[1,2]", 2}, {"{}", 0}, {R"({"a":1})", 1}, {"\"text\"", 0}, {"5", 0}, {"null", 0}}) {
    EXPECT_EQ(cfg_get_size(parse(text)), size) << text;
  }
}

TEST_F(PlatformCfg, AnObjectIsWalkedInTheOrderOfItsText) {
  const cfg_t* root = parse(R"({"zulu":1,"alpha":2,"mike":3})");
  const cfg_object_walk walk(cfg_alloc_object_iterator(root));
  std::string seen;
  std::string key;
  while (const cfg_t* value = cfg_next_object_iterator(walk.get(), &key))
    seen += key + "=" + std::to_string(integer(value)) + " ";
  EXPECT_EQ(seen, "zulu=1 alpha=2 mike=3 ");
  EXPECT_EQ(key, "mike");
  const cfg_object_walk again(cfg_alloc_object_iterator(root));
  EXPECT_EQ(integer(cfg_next_object_iterator(again.get(), nullptr)), 1);
  EXPECT_EQ(cfg_alloc_object_iterator(parse("[1]")), nullptr);
}

TEST_F(PlatformCfg, TextsAndBooleansAreReadOnlyFromSuch) {
  std::string text;
  EXPECT_TRUE(cfg_object_to_string(parse(R"("a\u00e9")"), &text));
  EXPECT_EQ(text, "a\xc3\xa9");
  bool flag = false;
  EXPECT_TRUE(cfg_object_to_bool(parse("true"), &flag));
  EXPECT_TRUE(flag);
  for (const char* other : {"1", "null", "[]", "{}"}) {
    EXPECT_FALSE(cfg_object_to_string(parse(other), &text)) << other;
    EXPECT_FALSE(cfg_object_to_bool(parse(other), &flag)) << other;
  }
  EXPECT_FALSE(cfg_object_to_string(parse("true"), &text));
  EXPECT_FALSE(cfg_object_to_bool(parse("\"true\""), &flag));
}

// Building

TEST_F(PlatformCfg, AReplyIsBuiltInTheOrderOfItsParts) {
  const cfg_tree reply(cfg_get_empty());
  EXPECT_EQ(text_of(reply), "{}");
  EXPECT_TRUE(cfg_set_param(reply.get(), "/error", false));
  EXPECT_TRUE(cfg_set_param(reply.get(), "/cause", "none"));
  EXPECT_TRUE(cfg_set_param(reply.get(), "/number", 7));
  EXPECT_TRUE(cfg_set_param(reply.get(), "/large", std::int64_t{-5000000000}));
  EXPECT_TRUE(cfg_set_param(reply.get(), "/name", std::string("a\"b")));
  EXPECT_EQ(text_of(reply), R"({"error":false,"cause":"none","number":7,"large":-5000000000,"name":"a\"b"})");
}

TEST_F(PlatformCfg, AParameterThatIsSetAgainKeepsItsPlace) {
  const cfg_tree reply = tree(R"({"error":false,"macs":[1]})");
  EXPECT_TRUE(cfg_set_param(reply.get(), "/error", true));
  EXPECT_TRUE(cfg_set_param(reply.get(), "/cause", "invalid action"));
  EXPECT_EQ(text_of(reply), R"({"error":true,"macs":[1],"cause":"invalid action"})");
}

TEST_F(PlatformCfg, ObjectsOnTheWayAreMade) {
  const cfg_tree made(cfg_get_empty());
  EXPECT_TRUE(cfg_set_param(made.get(), "/cfg/config/use~1tpc", 1));
  EXPECT_TRUE(cfg_set_param(made.get(), "/cfg/0", 2));
  EXPECT_TRUE(cfg_set_empty_object(made.get(), "/cfg/empty"));
  EXPECT_TRUE(cfg_set_empty_array(made.get(), "/list"));
  EXPECT_EQ(text_of(made), R"({"cfg":{"config":{"use/tpc":1},"0":2,"empty":{}},"list":[]})");
}

TEST_F(PlatformCfg, AnArrayGrowsAtItsEndAndIsMadeByItsFirstElement) {
  const cfg_tree reply(cfg_get_empty());
  EXPECT_TRUE(cfg_add_element(reply.get(), "/macs", "a8:f9:4b:00:11:22"));
  EXPECT_TRUE(cfg_add_element(reply.get(), "/macs", std::string("a8:f9:4b:00:11:23")));
  EXPECT_TRUE(cfg_add_element(reply.get(), "/macs", 3));
  EXPECT_TRUE(cfg_add_element(reply.get(), "/macs", std::int64_t{4}));
  EXPECT_TRUE(cfg_add_element(reply.get(), "/macs", true));
  EXPECT_TRUE(cfg_add_element(reply.get(), "/in/side", 1));
  EXPECT_EQ(text_of(reply), R"({"macs":["a8:f9:4b:00:11:22","a8:f9:4b:00:11:23",3,4,true],"in":{"side":[1]}})");
}

TEST_F(PlatformCfg, ASubtreeIsCopiedIntoAnotherTree) {
  const cfg_tree backup(cfg_get_empty());
  {
    const cfg_tree answer = tree(R"({"radios":{"interfaces":[{"id":0,"vaps":1},{"id":1,"vaps":2}]}})");
    EXPECT_TRUE(cfg_set_param(backup.get(), "/radios", cfg_get_subtree_from_path(answer.get(), "/radios")));
    EXPECT_TRUE(cfg_add_element(backup.get(), "/aps", answer.get()));
  }
  const cfg_tree vaps = tree(R"([{"id":3}])");
  EXPECT_TRUE(cfg_set_param(backup.get(), "/radios/interfaces/1/vaps", vaps.get()));
  EXPECT_EQ(text_of(backup), R"({"radios":{"interfaces":[{"id":0,"vaps":1},{"id":1,"vaps":[{"id":3}]}]},)"
                             R"("aps":[{"radios":{"interfaces":[{"id":0,"vaps":1},{"id":1,"vaps":2}]}}]})");
}

TEST_F(PlatformCfg, ASubtreeMayGoIntoItsOwnTree) {
  const cfg_tree own = tree(R"({"a":[1]})");
  EXPECT_TRUE(cfg_add_element(own.get(), "/a", cfg_get_subtree_from_path(own.get(), "/a")));
  EXPECT_EQ(text_of(own), R"({"a":[1,[1]]})");
  EXPECT_TRUE(cfg_set_param(own.get(), "/a", cfg_get_subtree_from_path(own.get(), "/a/1")));
  EXPECT_TRUE(cfg_set_param(own.get(), "/b", own.get()));
  EXPECT_EQ(text_of(own), R"({"a":[1],"b":{"a":[1]}})");
}

TEST_F(PlatformCfg, TheRootItselfCanBeSet) {
  const cfg_tree root(cfg_get_empty());
  EXPECT_TRUE(cfg_set_param(root.get(), "", 5));
  EXPECT_EQ(text_of(root), "5");
  EXPECT_TRUE(cfg_set_empty_array(root.get(), ""));
  EXPECT_TRUE(cfg_add_element(root.get(), "", 6));
  EXPECT_EQ(text_of(root), "[6]");
}

TEST_F(PlatformCfg, WhatCannotBeSetChangesNothing) {
  const std::string before = R"({"text":"t","array":[[],7],"null":null})";
  for (const char* path :
       {"/text/a", "/text/a/b", "/null/a", "/array/2", "/array/-", "/array/00", "/array/+0", "/array/x", "/array/",
        "/array/1/a", "/array/2/a", "array", "/~", "/array/99999999999999999999"}) {
    SCOPED_TRACE(path);
    const cfg_tree unchanged = tree(before);
    EXPECT_FALSE(cfg_set_param(unchanged.get(), path, 1));
    EXPECT_FALSE(cfg_add_element(unchanged.get(), path, 1));
    EXPECT_FALSE(cfg_set_empty_object(unchanged.get(), path));
    EXPECT_FALSE(cfg_set_empty_array(unchanged.get(), path));
    EXPECT_EQ(text_of(unchanged), before);
  }
  const cfg_tree unchanged = tree(before);
  for (const char* path : {"/text", "/array/1", "/null", ""}) EXPECT_FALSE(cfg_add_element(unchanged.get(), path, 1));
  const cfg_t* const nothing = nullptr;
  const char* const no_text = nullptr;
  EXPECT_FALSE(cfg_set_param(unchanged.get(), "/a", nothing));
  EXPECT_FALSE(cfg_set_param(unchanged.get(), "/a", no_text));
  EXPECT_FALSE(cfg_add_element(unchanged.get(), "/array", nothing));
  EXPECT_FALSE(cfg_add_element(unchanged.get(), "/array", no_text));
  EXPECT_FALSE(cfg_set_param(unchanged.get(), nullptr, 1));
  EXPECT_FALSE(cfg_add_element(unchanged.get(), nullptr, 1));
  EXPECT_EQ(text_of(unchanged), before);
}

// Printing

TEST_F(PlatformCfg, ATextSurvivesParsingAndPrintingWithoutItsBlanks) {
  const cfg_tree read = tree(R"({ "b" : [ 1, -2, 3.5, true, null, {} ] , "a" : "x\n\u0001" })");
  EXPECT_EQ(text_of(read), R"({"b":[1,-2,3.5,true,null,{}],"a":"x\n\u0001"})");
  EXPECT_EQ(cfg_serialize_compact(cfg_get_subtree_from_path(read.get(), "/b/5")), "{}");
}

TEST_F(PlatformCfg, BytesThatAreNoTextArePrintedAsReplacements) {
  const cfg_tree made(cfg_get_empty());
  EXPECT_TRUE(cfg_set_param(made.get(), "/ssid", "caf\xe9!"));
  EXPECT_EQ(text_of(made), "{\"ssid\":\"caf\xef\xbf\xbd!\"}");
}

}  // namespace
}  // namespace zal
