#pragma once

namespace servicebench {

void registerTransactionBenches();
void registerStepsBench();
void registerIdleBenches();

}  // namespace servicebench
