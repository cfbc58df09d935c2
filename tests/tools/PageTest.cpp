#include "report/Page.h"

#include <gmock/gmock.h>

#include "base/Json.h"

using testing::HasSubstr;
using timeline::Timeline;

namespace {

constexpr int64_t kDeathMs = 500'000;
constexpr char kHostile[] = "</script><script>x('&')</script>\x01\u2028\u202e{{data}}";

Timeline story() {
  Timeline timeline;
  timeline.clocks = {kDeathMs + 1000, kDeathMs, 1'790'000'001'000};
  timeline.endMs = kDeathMs + 1000;
  timeline.machine = "Linux <6>";
  timeline.changes = {{0, 10, "screen", "home", true},
                      {0, 20, kHostile, kHostile, true},
                      {kDeathMs - 60'000, 10, "screen", "editor", false},
                      {kDeathMs - 1000, 10, kHostile, kHostile, false}};
  timeline.deaths = {{kDeathMs, 10, 11, "photos"}};
  timeline.names = {{10, kHostile}};
  timeline.context = {{kHostile, kHostile}};
  timeline.globals = {{kDeathMs - 5000, kHostile, kHostile, kHostile}};
  timeline.gaps = {{kDeathMs - 4000, kDeathMs - 3000, kHostile}};
  timeline::Series cpu{"cpu_utilization_history", kHostile, timeline::Unit::Percent, {}};
  for (int64_t ms = 0; ms <= kDeathMs + 1000; ms += 2000) cpu.points.push_back({ms, 12.5});
  cpu.points[240].value.reset();
  timeline.series = {cpu};
  timeline.document["all"] = kHostile;
  return timeline;
}

std::string pageOf(const Timeline& timeline, const report::Choice& choice = {}) {
  const auto page = report::page(timeline, choice);
  return page.ok() ? *page : "error: " + page.error().message();
}

// What the page's script reads.
Json::Value dataOf(const std::string& page) {
  const std::string open = "<script type=\"application/json\" id=\"data\">";
  const size_t begin = page.find(open) + open.size();
  return Torv::Base::parseJson(page.substr(begin, page.find("</script>", begin) - begin))
      .value_or(Json::Value());
}

}  // namespace

TEST(PageTest, letsNoTextOfAProcessBecomeMarkup) {
  const std::string page = pageOf(story());
  for (const char* const markup : {"<script>x", "x('&')", "<6>", "\x01", "\u2028", "\u202e"}) {
    EXPECT_THAT(page, testing::Not(HasSubstr(markup)));
  }
  EXPECT_THAT(page,
              HasSubstr("&lt;/script&gt;&lt;script&gt;x('&amp;')&lt;/script&gt;\\x01\\u2028\\u202e{{data}}"));
  EXPECT_THAT(page, HasSubstr("Linux &lt;6&gt;"));
}

TEST(PageTest, endsTheSharedTimeAxisAtTheDeathAndGivesEachKeyALane) {
  const Json::Value data = dataOf(pageOf(story()));
  EXPECT_EQ(data["begin"].asInt(), -120'000);
  EXPECT_EQ(data["endWall"].asInt64(), 1'790'000'000'000);
  ASSERT_EQ(data["charts"].size(), 1u);
  EXPECT_EQ(data["charts"][0]["high"].asInt(), 100);
  const Json::Value& points = data["charts"][0]["lines"][0]["points"];
  ASSERT_EQ(points.size(), 61u);
  EXPECT_EQ(points[60][0].asInt(), 0);
  EXPECT_TRUE(points[50][1].isNull()) << "a gap is no zero";
  ASSERT_EQ(data["lanes"].size(), 2u);
  EXPECT_EQ(data["lanes"][1], *Torv::Base::parseJson(R"({"key": "screen", "changes": [
      {"at": -120000, "to": -60000, "value": "home", "known": true},
      {"at": -60000, "to": 0, "value": "editor", "known": false}]})"));
}

TEST(PageTest, tellsInTablesWhatTheChartsShow) {
  const std::string page = pageOf(story());
  for (const char* const part :
       {"<th>Signal<td>11 (SIGSEGV: Segmentation fault)",
        "<tr><td>−60.0 s <small>14:12:20.000</small><td>screen<td>editor", "<tr><td>−2.0 s<td>12.5\n",
        "Other processes (1)", "Permission is hereby granted"}) {  // the chart library's licence
    EXPECT_THAT(page, HasSubstr(part));
  }
}

TEST(PageTest, isAboutTheChosenProcessOrRefusesAnUnknownOne) {
  EXPECT_THAT(pageOf(story(), {20}), HasSubstr("<h1>Process 20</h1>"));
  EXPECT_EQ(pageOf(story(), {99}), "error: nothing is known of process 99");
  Timeline quiet = story();
  quiet.deaths.clear();
  EXPECT_THAT(pageOf(quiet), HasSubstr("<h1>The machine</h1>"));
  EXPECT_THAT(pageOf(Timeline{}), HasSubstr("The service gave no histories."));
}
