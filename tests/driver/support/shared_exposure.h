#pragma once

#include "testbed/shared_exposure.h"

namespace lidcam::test {

using testbed::ResetSharedExposure;

}  // namespace lidcam::test
