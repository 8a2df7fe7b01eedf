#include "library/IndexCoding.h"
#include "library/FlowStore.h"
#include "support/TestLibrary.h"

#include <gtest/gtest.h>

using namespace varnel;
using namespace varnel::test;

namespace {

LibraryIndex sampleIndex() {
    LibraryIndex index;
    index.categories = {{"Onboarding"}, {"Quote \" and \\ slash"}, {"Tab\tand\u0001control"}};
    index.flows = {
        {"ID-1", "Acme Bank", "Sign up", "acme-bank/onboarding/sign-up", "Onboarding",
         Date{738936000.25}, 3},
        {"ID-2", std::nullopt, "Café ☕ 日本", "uncategorized/uncategorized/caf", std::nullopt,
         Date{700000000}, 0},
        {"ID-3", "A", "Line\nbreak", "a/b/line-break", "B", Date{-12.5}, 120},
    };
    return index;
}

} // namespace

TEST(IndexCodingTest, EncodesExactlyLikeTheSharedEncoder) {
    const LibraryIndex index = sampleIndex();
    EXPECT_EQ(IndexCoding::encode(index), encodeLibraryJson(index.toJson()));
    EXPECT_EQ(IndexCoding::encode(LibraryIndex{}), encodeLibraryJson(LibraryIndex{}.toJson()));
    LibraryIndex flowsOnly = index;
    flowsOnly.categories.clear();
    EXPECT_EQ(IndexCoding::encode(flowsOnly), encodeLibraryJson(flowsOnly.toJson()));
}

TEST(IndexCodingTest, RefusesNamesThatAreNotUTF8) {
    LibraryIndex index = sampleIndex();
    index.flows[0].name = "bad \xC3\x28 byte";
    EXPECT_THROW(IndexCoding::encode(index), CodingError);
    index.flows[0].name = "surrogate \xED\xA0\x80";
    EXPECT_THROW(IndexCoding::encode(index), CodingError);
}

TEST(IndexCodingTest, DecodesWhatTheDocumentReaderDecodes) {
    const std::string text = IndexCoding::encode(sampleIndex());
    EXPECT_EQ(IndexCoding::decode(text), sampleIndex());

    const std::string lenient = R"({"version": {"nested": [1, {"x": []}]},
      "flows": [{"id": "1", "name": "N", "folderName": "a/b/c", "date": 5, "screenCount": 2.0,
                 "application": null, "extra": [{"deep": {"deeper": []}}]}],
      "categories": [{"name": "C", "color": "red"}]})";
    EXPECT_EQ(IndexCoding::decode(lenient), LibraryIndex::fromJson(parseLibraryJson(lenient)));
}

TEST(IndexCodingTest, RejectsWhatTheDocumentReaderRejects) {
    const char* broken[] = {
        "",
        "{ not json",
        "[]",
        "5",
        R"({"flows": []})",
        R"({"categories": []})",
        R"({"flows": {}, "categories": []})",
        R"({"flows": [], "categories": null})",
        R"({"flows": [5], "categories": []})",
        R"({"flows": [{"name": "N", "folderName": "f", "date": 1, "screenCount": 0}], "categories": []})",
        R"({"flows": [{"id": "1", "name": "N", "folderName": "f", "date": "2024-05-01", "screenCount": 0}], "categories": []})",
        R"({"flows": [{"id": "1", "name": "N", "folderName": "f", "date": 1, "screenCount": 1.5}], "categories": []})",
        R"({"flows": [{"id": 1, "name": "N", "folderName": "f", "date": 1, "screenCount": 1}], "categories": []})",
        R"({"flows": [{"id": "1", "name": ["N"], "folderName": "f", "date": 1, "screenCount": 1}], "categories": []})",
        R"({"flows": [], "categories": [{"title": "x"}]})",
        R"({"flows": [], "categories": [{"name": 3}]})",
        R"({"flows": [], "categories": ["Onboarding"]})",
        R"({"flows": [{"id": "1", "name": "N", "folderName": "f", "date": 1e999, "screenCount": 1}], "categories": []})",
    };
    for (const char* text : broken) {
        EXPECT_THROW(IndexCoding::decode(text), CodingError) << text;
        EXPECT_ANY_THROW(LibraryIndex::fromJson(parseLibraryJson(text))) << text;
    }
}

TEST(IndexCodingTest, TheStoreSeesAnIndexChangedBehindItsBack) {
    TempDir dir;
    FlowStore store(dir.path());
    store.createEmptyFlow("A", "One", std::nullopt, Date{});
    EXPECT_EQ(store.readIndex().flows.size(), 1u);

    LibraryIndex edited = store.readIndex();
    edited.flows[0].name = "Renamed elsewhere";
    writeFile(dir / "index.json", encodeLibraryJson(edited.toJson()));
    EXPECT_EQ(store.readIndex().flows[0].name, "Renamed elsewhere");

    writeFile(dir / "index.json", "garbage");
    EXPECT_THROW(store.readIndex(), DecodingError);
    fs::remove(dir / "index.json");
    EXPECT_TRUE(store.readIndex().flows.empty());
}
