#include <cstring>

#include "Lines.h"
#include "PsiCollector.h"

using namespace Torv::OS::Diagnostics;

FUZZ(text) {
  forEachLine(text, [&](std::string_view found, const std::string& line) {
    char type[5] = "";
    float averages[3] = {};
    unsigned long total = 0;
    std::sscanf(line.c_str(), "%4s avg10=%f avg60=%f avg300=%f total=%lu", type, &averages[0], &averages[1],
                &averages[2], &total);

    const auto psi = PsiCollector::parseLine(found);
    const float foundAverages[3] = {psi.avg10, psi.avg60, psi.avg300};
    check(std::strcmp(psi.type.data(), type) == 0, "type");
    // Byte by byte, so that a NaN equals itself and a zero keeps its sign.
    check(std::memcmp(foundAverages, averages, sizeof(averages)) == 0, "averages");
    check(psi.total == total, "total");
  });
}
