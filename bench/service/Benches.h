#pragma once

namespace servicebench {

void registerTransactionBenches();
void registerStepsBench();
void registerMemoryBenches();

}  // namespace servicebench
