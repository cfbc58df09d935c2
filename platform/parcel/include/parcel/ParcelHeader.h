// <binder/Parcel.h> and whatever includes it use three standard headers that they do not name.
#pragma once

#include <limits>
#include <memory>
#include <optional>

#include <binder/Parcel.h>
