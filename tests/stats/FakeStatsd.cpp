#include "FakeStatsd.h"

namespace test {

FakeStatsd& fakeStatsd() {
  static FakeStatsd fake;
  return fake;
}

}  // namespace test

namespace libstatsd {
namespace {

void note(const std::string& call) {
  test::fakeStatsd().calls.push_back(call);
}

std::string both(int32_t configId, int32_t uid) {
  return std::to_string(configId) + " " + std::to_string(uid);
}

}  // namespace

bool StatsdConfiguration::addEventAtomId(int32_t atomId) {
  note("atom " + std::to_string(atomId));
  return atomId != test::fakeStatsd().refusedAtom;
}

void StatsdConfiguration::addAllowedLogSource(const std::string& source) {
  note("source " + source);
}

PublishStatus StatsdConfiguration::publishConfigurationBlocked(int32_t configId, int32_t uid) {
  note("publish " + both(configId, uid));
  return test::fakeStatsd().status;
}

void StatsdCollection::addConfiguration(int32_t configId, int32_t uid) {
  note("collect " + both(configId, uid));
}

std::variant<std::vector<Report>, Error> StatsdCollection::fetchReportsBlocked() {
  note("fetch");
  return test::fakeStatsd().reports;
}

}  // namespace libstatsd
