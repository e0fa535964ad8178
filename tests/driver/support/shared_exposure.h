#pragma once

#include "world/shared_exposure.h"

namespace lidcam::test {

using world::ResetSharedExposure;

}  // namespace lidcam::test
