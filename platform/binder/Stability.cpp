#include "parcel/ParcelHeader.h"

#include <binder/Stability.h>

namespace android::internal {

// Called by stubs that aidl-cpp has generated. Binders do not travel in parcels here, so nothing ever asks
// for the level of one.
void Stability::markCompilationUnit(IBinder* /*binder*/) {}

}  // namespace android::internal
