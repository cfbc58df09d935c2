// The platform's binder headers, behind the standard headers that they use without including them.
#pragma once

#include <limits>
#include <memory>
#include <optional>

#include <binder/Binder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>
