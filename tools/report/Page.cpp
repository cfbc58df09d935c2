#include "report/Page.h"

#include <algorithm>
#include <map>
#include <random>
#include <string_view>

#include <fmt/format.h>
#include <json/writer.h>

#include "ChartData.h"
#include "Html.h"
#include "PageParts.h"
#include "Scope.h"
#include "Tables.h"
#include "text/Text.h"

namespace report {
namespace {

using android::base::Error;
using android::base::Result;
using timeline::Timeline;

// The last death of the process; of any process if none is chosen.
// A pid can die more than once in a long recording. The newest death is the one that people ask about.
const timeline::Death* deathOf(const Timeline& timeline, const Choice& choice) {
  const auto death = std::find_if(timeline.deaths.rbegin(), timeline.deaths.rend(),
                                  [&](const auto& d) { return !choice.pid || d.pid == *choice.pid; });
  return death == timeline.deaths.rend() ? nullptr : &*death;
}

// What was recorded after the death belongs to other stories; the page ends there.
Scope scopeOf(const Timeline& timeline, const Choice& choice) {
  Scope scope{timeline, choice.pid, deathOf(timeline, choice), 0, timeline.endMs};
  if (scope.death != nullptr) {
    scope.pid = scope.death->pid;
    scope.endMs = scope.death->seenMs;
  }
  // A report of one moment still has a time axis.
  scope.beginMs =
      std::min(std::max(timeline.beginMs, scope.endMs - choice.lastMs), scope.endMs - int64_t{1000});
  return scope;
}

// A process without a key is known if it died: a crash report may be about one that published nothing.
bool isKnown(const Timeline& timeline, int32_t pid) {
  const auto isOf = [pid](const auto& thing) { return thing.pid == pid; };
  return std::any_of(timeline.changes.begin(), timeline.changes.end(), isOf) ||
         std::any_of(timeline.deaths.begin(), timeline.deaths.end(), isOf);
}

// Readable without the script, and to be copied as it stands: apart from HTML's escapes, which the browser
// takes back, it is the document.
std::string documentText(const Json::Value& document) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = " ";
  settings["precision"] = 15;
  settings["enableYAMLCompatibility"] = true;  // a colon without a blank before it
  return escaped(Json::writeString(settings, document));
}

// A number that no text of a process can know before the page is made. Scripts and styles without it do not
// run.
std::string makeNonce() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

// <title> holds text alone: no markup is read in it, so <bdi> would be shown.
std::string plainTitle(const Scope& scope) {
  if (!scope.pid) return "Report of the machine";
  return fmt::format("Report of process {} {}", *scope.pid, shown(nameOf(scope.timeline, *scope.pid)));
}

// Puts each part in the place of its {{name}}. What was put in is not read again.
std::string filled(std::string_view pageTemplate, const std::map<std::string_view, std::string>& parts) {
  std::string page;
  for (;;) {
    const size_t open = pageTemplate.find("{{");
    page += pageTemplate.substr(0, open);
    if (open == std::string_view::npos) return page;
    const size_t close = pageTemplate.find("}}", open);
    page += parts.at(pageTemplate.substr(open + 2, close - open - 2));
    pageTemplate.remove_prefix(close + 2);
  }
}

}  // namespace

// The page's policy permits nothing but the scripts and styles with the nonce, so a text that did become
// markup would still not run or load anything.
Result<std::string> page(const Timeline& timeline, const Choice& choice) {
  if (choice.pid && !isKnown(timeline, *choice.pid)) {
    return Error() << "nothing is known of process " << *choice.pid;
  }
  const Scope scope = scopeOf(timeline, choice);
  return filled(kPageTemplate, {
                                   {"nonce", makeNonce()},
                                   {"title", plainTitle(scope)},
                                   {"heading", processName(scope) + (scope.death != nullptr ? " died" : "")},
                                   {"style", std::string(kStyle)},
                                   {"facts", factsTable(scope)},
                                   {"states", statesTable(scope)},
                                   {"changes", changesTable(scope)},
                                   {"system", systemTables(scope)},
                                   {"figures", figureTables(scope)},
                                   {"other_count", std::to_string(countOthers(scope))},
                                   {"others", othersTable(scope)},
                                   {"document", documentText(timeline.document)},
                                   {"licence", escaped(kChartLibraryLicence)},
                                   {"data", chartData(scope)},
                                   {"library", std::string(kChartLibrary)},
                                   {"script", std::string(kScript)},
                               });
}

}  // namespace report
