#pragma once

namespace bench {

void registerPollBenches();
void registerDumpBenches();

}  // namespace bench
