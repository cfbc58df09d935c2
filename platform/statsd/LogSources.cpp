#include "LogSources.h"

#include <map>

#include <private/android_filesystem_config.h>

namespace libstatsd {
namespace {

// The names that statsd knows by heart.
const std::map<std::string, uid_t>& fixedUids() {
  static const auto& uids = *new std::map<std::string, uid_t>{
      {"AID_ROOT", AID_ROOT},
      {"AID_SYSTEM", AID_SYSTEM},
      {"AID_RADIO", AID_RADIO},
      {"AID_BLUETOOTH", AID_BLUETOOTH},
      {"AID_GRAPHICS", AID_GRAPHICS},
      {"AID_INPUT", AID_INPUT},
      {"AID_AUDIO", AID_AUDIO},
      {"AID_CAMERA", AID_CAMERA},
      {"AID_LOG", AID_LOG},
      {"AID_COMPASS", AID_COMPASS},
      {"AID_MOUNT", AID_MOUNT},
      {"AID_WIFI", AID_WIFI},
      {"AID_ADB", AID_ADB},
      {"AID_INSTALL", AID_INSTALL},
      {"AID_MEDIA", AID_MEDIA},
      {"AID_DHCP", AID_DHCP},
      {"AID_VPN", AID_VPN},
      {"AID_KEYSTORE", AID_KEYSTORE},
      {"AID_USB", AID_USB},
      {"AID_DRM", AID_DRM},
      {"AID_GPS", AID_GPS},
      {"AID_NFC", AID_NFC},
      {"AID_LOGD", AID_LOGD},
      {"AID_CAMERASERVER", AID_CAMERASERVER},
      {"AID_AUDIOSERVER", AID_AUDIOSERVER},
      {"AID_MEDIA_CODEC", AID_MEDIA_CODEC},
      {"AID_NETWORK_STACK", AID_NETWORK_STACK},
      {"AID_STATSD", AID_STATSD},
      {"AID_LMKD", AID_LMKD},
      {"AID_SHELL", AID_SHELL},
      {"AID_NOBODY", AID_NOBODY},
  };
  return uids;
}

bool isApplication(uid_t uid) {
  const uid_t withinUser = uid % AID_USER_OFFSET;
  return withinUser >= AID_APP_START && withinUser <= AID_APP_END;
}

}  // namespace

LogSources::LogSources(const std::vector<std::string>& names, uid_t serviceUid) {
  for (const std::string& name : names) {
    if (name == "AID_APP") {
      mApplications = true;
      mUids.insert(serviceUid);
    } else if (const auto found = fixedUids().find(name); found != fixedUids().end()) {
      mUids.insert(found->second);
    }
  }
}

bool LogSources::allow(uid_t sender) const {
  return (mApplications && isApplication(sender)) || mUids.count(sender) != 0;
}

}  // namespace libstatsd
