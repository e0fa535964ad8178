#pragma once

#include "testbed/shared_exposure.h"

namespace lidcam::test {

using world::ResetSharedExposure;

}  // namespace lidcam::test
