// What an image's build is told about the service, held against the sources and against each other: nothing
// in this checkout builds those files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <android-base/file.h>

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;
using Names = std::set<std::string>;

// A module of Android.bp: its lists of strings by property name, single strings as lists of one.
using Module = std::map<std::string, Names>;

const fs::path kCheckout = DIAG_CHECKOUT;

std::string contentsOf(const fs::path& path) {
  std::string text;
  EXPECT_TRUE(android::base::ReadFileToString(kCheckout / path, &text)) << path;
  return text;
}

Names allMatches(const std::string& text, const std::string& expression) {
  const std::regex regex(expression);
  Names found;
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
    found.insert((*match)[1]);
  }
  return found;
}

// The modules of Android.bp as bpfmt lays them out: each begins and ends in the first column.
std::map<std::string, Module> modules() {
  std::map<std::string, Module> all;
  const std::string text = contentsOf("android/Android.bp");
  const std::regex moduleBody(R"(\n[a-z_]+ \{\n([^]*?)\n\})");
  const std::regex property(R"re(\b([a-z_]+): (\[[^\]]*\]|"[^"]*"))re");
  for (std::sregex_iterator body(text.begin(), text.end(), moduleBody), end; body != end; ++body) {
    const std::string inside = (*body)[1];
    Module module;
    for (std::sregex_iterator entry(inside.begin(), inside.end(), property); entry != end; ++entry) {
      module[(*entry)[1]].merge(allMatches((*entry)[2], R"re("([^"]*)")re"));
    }
    for (const std::string& name : module["name"]) all[name] = module;
  }
  return all;
}

// The files below a folder that end in one of the suffixes, as Android.bp names them.
Names filesBelow(const std::string& folder, const Names& suffixes) {
  Names files;
  for (const auto& entry : fs::recursive_directory_iterator(kCheckout / folder)) {
    if (suffixes.count(entry.path().extension())) files.insert(entry.path().lexically_relative(kCheckout));
  }
  return files;
}

Names sourcesBelow(const std::string& folder) {
  Names sources;
  for (const auto& [name, module] : modules()) {
    const auto listed = module.find("srcs");
    if (listed == module.end()) continue;
    for (const std::string& source : listed->second) {
      if (source.rfind(folder + "/", 0) == 0) {
        EXPECT_TRUE(sources.insert(source).second) << source << " is built twice";
      }
    }
  }
  return sources;
}

TEST(ImageFiles, EverySourceIsBuiltAndEveryListedSourceIsThere) {
  for (const char* folder : {"base", "src"}) {
    EXPECT_EQ(sourcesBelow(folder), filesBelow(folder, {".cpp", ".proto"}));
  }
  EXPECT_EQ(sourcesBelow("android"), filesBelow("android", {".aidl", ".sysprop"}));
}

TEST(ImageFiles, EveryNamedFileIsThere) {
  for (const auto& [name, module] : modules()) {
    for (const char* property :
         {"init_rc", "export_include_dirs", "local_include_dirs", "local_include_dir"}) {
      const auto paths = module.find(property);
      if (paths == module.end()) continue;
      for (const std::string& path : paths->second) EXPECT_TRUE(fs::exists(kCheckout / path)) << path;
    }
  }
}

TEST(ImageFiles, FlagsAreThoseThatTheServiceReads) {
  const char* const property = R"re("(persist\.[^"]*)")re";
  const Names read = allMatches(contentsOf("src/sysprop/SharedOsServicesProperties.cpp"), property);
  EXPECT_EQ(allMatches(contentsOf("android/sysprop/SharedOsServicesProperties.sysprop"), property), read);
  const std::string labelled = contentsOf("android/sepolicy/property_contexts");
  for (const std::string& name : read) EXPECT_THAT(name, StartsWith(labelled.substr(0, labelled.find(' '))));
}

TEST(ImageFiles, PolicyLabelsTheProgramThatInitStartsAndTheServicesItOffers) {
  const char* const program = "/system_ext/bin/diagnostics_collector_service";
  EXPECT_THAT(contentsOf("android/diagnostics_collector_service.rc"),
              AllOf(HasSubstr(std::string("\nservice diagnostics_collector_service ") + program + "\n"),
                    HasSubstr("\n    capabilities\n")))
      << "an empty list takes all of them away";
  const std::string labels = contentsOf("android/sepolicy/file_contexts");
  EXPECT_TRUE(std::regex_match(program, std::regex(labels.substr(0, labels.find(' '))))) << labels;

  Names offered;
  for (const char* header : {"IDiagnosticsCollectorService.h", "IDiagnosticsNotificationService.h"}) {
    offered.merge(allMatches(contentsOf(fs::path("src/aidl/include/dev/kerno/internal/diagnostics") / header),
                             R"re(kServiceName\[\] = "(\w+)")re"));
  }
  EXPECT_EQ(allMatches(contentsOf("android/sepolicy/service_contexts"), R"((\w+)\s+u:)"), offered);
}

}  // namespace
