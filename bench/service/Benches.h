#pragma once

namespace servicebench {

void registerTransactionBenches();
void registerStepsBench();
void registerMemoryBenches();
void registerRecordBench();

}  // namespace servicebench
