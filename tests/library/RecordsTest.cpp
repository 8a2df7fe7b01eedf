#include "library/FlowMeta.h"
#include "library/JsonCoding.h"
#include "library/LibraryIndex.h"

#include <gtest/gtest.h>

using namespace varnel;

namespace {

// A meta.json as older libraries wrote it: dates as numbers, rectangles as two arrays, and
// every optional record present once.
constexpr const char* kFullMeta = R"({
  "application" : "Acme Bank",
  "categoryL1" : "Onboarding",
  "date" : 738936000.25,
  "deviceName" : "iPhone 15 Pro",
  "figmaFileURL" : "https://www.figma.com/design/AbC123/Flows?node-id=1-2",
  "figmaLastPulledAt" : 739000000.5,
  "figmaPendingDeletes" : ["111", "222"],
  "height" : 2556,
  "id" : "6F9619FF-8B86-D011-B42D-00C04FC964FF",
  "name" : "Sign up",
  "preservesWhenEmpty" : false,
  "screens" : [
    {
      "capturedAt" : 738936001.125,
      "comments" : [
        {"createdAt" : 738936100, "id" : "C1", "postedId" : "987", "postedSignature" : "0.25,0.5|Fix this label", "text" : "Fix this label", "x" : 0.25, "y" : 0.5},
        {"createdAt" : 738936200.5, "id" : "C2", "text" : "Local only", "x" : 1, "y" : 0}
      ],
      "figmaThreads" : [
        {"authorHandle" : "ana", "authorId" : "u1", "authorImgURL" : "https://example.com/a.png",
         "createdAt" : 738936300, "replies" : [
           {"authorHandle" : "bo", "authorId" : "u2", "createdAt" : 738936400, "id" : "r1", "text" : "Agreed"}
         ], "resolved" : false, "rootId" : "987", "text" : "Fix this label", "x" : 0.25, "y" : 0.5},
        {"authorHandle" : "cy", "authorId" : "u3", "createdAt" : 738936500, "replies" : [],
         "resolved" : true, "rootId" : "988", "text" : "Elsewhere"}
      ],
      "filename" : "01.png",
      "name" : "Welcome",
      "patches" : [{"file" : "01.patch-0A0B0000-0000-4000-8000-000000000002.png", "rect" : [[0.1, 0.2], [0.3, 0.4]]}],
      "redactStyle" : {"blue" : 1, "blur" : 50, "green" : 1, "opacity" : 0.35, "red" : 1},
      "redactions" : [
        {"kind" : "rect", "rect" : [[0.05, 0.1], [0.5, 0.125]]},
        {"kind" : "ellipse", "rect" : [[0.5, 0.5], [0.25, 0.25]]}
      ],
      "source" : "manual"
    },
    {"capturedAt" : 738936002, "filename" : "02.mov", "source" : "auto"}
  ],
  "screensRenumberedAt" : 738999999.75,
  "width" : 1179
})";

Json withoutKey(Json json, const std::string& key) {
    json.erase(key);
    return json;
}

} // namespace

TEST(RecordsTest, MetaInTheOriginalFormatRoundTripsWithoutLosingAKey) {
    const Json original = parseLibraryJson(kFullMeta);
    const FlowMeta meta = FlowMeta::fromJson(original);

    EXPECT_EQ(meta.date.seconds, 738936000.25);
    ASSERT_EQ(meta.screens.size(), 2u);
    EXPECT_EQ(meta.screens[1].source, CaptureSource::automatic);
    ASSERT_TRUE(meta.screens[0].redactions);
    EXPECT_EQ((*meta.screens[0].redactions)[0].rect, (NormalizedRect{0.05, 0.1, 0.5, 0.125}));
    EXPECT_EQ((*meta.screens[0].redactions)[1].kind, RedactShape::Kind::ellipse);
    EXPECT_EQ(meta.screens[0].figmaThreads->at(0).replies.at(0).text, "Agreed");
    EXPECT_FALSE(meta.screens[0].figmaThreads->at(1).x.has_value());

    EXPECT_EQ(meta.toJson(), original);
    EXPECT_EQ(FlowMeta::fromJson(parseLibraryJson(encodeLibraryJson(meta.toJson()))).toJson(),
              original);
}

TEST(RecordsTest, OlderMetaWithoutOptionalKeysReadsAndWritesThemBackAbsent) {
    Json json = parseLibraryJson(kFullMeta);
    for (const char* key :
         {"preservesWhenEmpty", "figmaFileURL", "figmaPendingDeletes", "figmaLastPulledAt",
          "screensRenumberedAt", "application", "categoryL1", "deviceName"})
        json.erase(key);
    const FlowMeta meta = FlowMeta::fromJson(json);
    EXPECT_FALSE(meta.preserves());
    EXPECT_FALSE(meta.figmaPendingDeletes);
    EXPECT_EQ(meta.toJson(), json);
}

TEST(RecordsTest, MissingRequiredKeyMakesTheMetaUnreadable) {
    const Json json = parseLibraryJson(kFullMeta);
    for (const char* key : {"id", "name", "date", "width", "height", "screens"})
        EXPECT_THROW(FlowMeta::fromJson(withoutKey(json, key)), CodingError) << key;

    Json screen = json["screens"][0];
    for (const char* key : {"filename", "capturedAt", "source"}) {
        Json broken = json;
        broken["screens"][0] = withoutKey(screen, key);
        EXPECT_THROW(FlowMeta::fromJson(broken), CodingError) << key;
    }
}

TEST(RecordsTest, UnknownEnumValuesAndDateStringsAreUnreadable) {
    Json json = parseLibraryJson(kFullMeta);
    Json badSource = json;
    badSource["screens"][1]["source"] = "scheduled";
    EXPECT_THROW(FlowMeta::fromJson(badSource), CodingError);

    Json badKind = json;
    badKind["screens"][0]["redactions"][0]["kind"] = "circle";
    EXPECT_THROW(FlowMeta::fromJson(badKind), CodingError);

    Json isoDate = json;
    isoDate["date"] = "2024-05-01T14:03:27Z";
    EXPECT_THROW(FlowMeta::fromJson(isoDate), CodingError);
}

TEST(RecordsTest, NumbersBeyondRangeAreUnreadableNotFatal) {
    EXPECT_THROW(parseLibraryJson(R"({"date": 1e999})"), CodingError);
    EXPECT_THROW(parseLibraryJson("[-1e400]"), CodingError);
}

TEST(RecordsTest, WrittenDatesAreNumbersAndNullOptionalsCountAsAbsent) {
    Json json = parseLibraryJson(kFullMeta);
    json["deviceName"] = nullptr;
    const FlowMeta meta = FlowMeta::fromJson(json);
    EXPECT_FALSE(meta.deviceName);
    const Json written = meta.toJson();
    EXPECT_TRUE(written["date"].is_number());
    EXPECT_TRUE(written["screens"][0]["capturedAt"].is_number());
    EXPECT_FALSE(written.contains("deviceName"));
}

TEST(RecordsTest, KeysOfNewerVersionsSurviveARoundTrip) {
    Json json = parseLibraryJson(kFullMeta);
    json["futureFlowKey"] = {{"nested", 1}};
    json["screens"][1]["futureScreenKey"] = "kept";
    EXPECT_EQ(FlowMeta::fromJson(json).toJson(), json);
}

TEST(RecordsTest, IntegralFloatsReadAsIntegersButFractionsDoNot) {
    Json json = parseLibraryJson(kFullMeta);
    json["width"] = 1179.0;
    EXPECT_EQ(FlowMeta::fromJson(json).width, 1179);
    json["width"] = 1179.5;
    EXPECT_THROW(FlowMeta::fromJson(json), CodingError);
}

TEST(RecordsTest, RectanglesAlsoReadFromTheKeyedForm) {
    Json json = parseLibraryJson(kFullMeta);
    json["screens"][0]["redactions"][0]["rect"] = {
        {"x", 0.1}, {"y", 0.2}, {"width", 0.3}, {"height", 0.4}};
    const FlowMeta meta = FlowMeta::fromJson(json);
    EXPECT_EQ(meta.screens[0].redactions->at(0).rect, (NormalizedRect{0.1, 0.2, 0.3, 0.4}));
    EXPECT_EQ(meta.toJson()["screens"][0]["redactions"][0]["rect"],
              Json::parse("[[0.1, 0.2], [0.3, 0.4]]"));
}

TEST(RecordsTest, IndexRoundTripsAndUpsertKeepsTheUsersOrder) {
    const Json json = Json::parse(R"({
      "categories": [{"name": "Onboarding"}, {"name": "Payments"}],
      "flows": [
        {"date": 1, "folderName": "a/b/one", "id": "1", "name": "One", "screenCount": 3},
        {"application": "A", "categoryL1": "B", "date": 2, "folderName": "a/b/two", "id": "2",
         "name": "Two", "screenCount": 0}
      ]})");
    LibraryIndex index = LibraryIndex::fromJson(json);
    EXPECT_EQ(index.toJson(), json);

    FlowSummary renamed = index.flows[0];
    renamed.name = "Uno";
    renamed.folderName = "a/b/uno";
    index.upsert(renamed);
    ASSERT_EQ(index.flows.size(), 2u);
    EXPECT_EQ(index.flows[0].name, "Uno");

    FlowSummary added{"3", std::nullopt, "Three", "a/b/three", std::nullopt, Date{3}, 1};
    index.upsert(added);
    EXPECT_EQ(index.flows.back().id, "3");
    EXPECT_THROW(LibraryIndex::fromJson(withoutKey(json, "categories")), CodingError);
}

TEST(RecordsTest, EncoderSortsKeysAndPrettyPrints) {
    const std::string text = encodeLibraryJson(Json{{"zeta", 1}, {"alpha", {{"b", 2}, {"a", 1}}}});
    EXPECT_LT(text.find("\"alpha\""), text.find("\"zeta\""));
    EXPECT_LT(text.find("\"a\""), text.find("\"b\""));
    EXPECT_NE(text.find('\n'), std::string::npos);
}

TEST(RecordsTest, PendingDeletesQueueOnceInAscendingOrderAfterThoseQueued) {
    FlowMeta meta;
    meta.figmaPendingDeletes = std::vector<std::string>{"500"};
    meta.queuePendingDeletes({"300", "100", "500", "100"});
    EXPECT_EQ(*meta.figmaPendingDeletes, (std::vector<std::string>{"500", "100", "300"}));

    FlowMeta untouched;
    untouched.queuePendingDeletes({});
    EXPECT_FALSE(untouched.figmaPendingDeletes);
}
