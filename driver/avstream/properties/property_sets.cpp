#include "driver/avstream/properties/property_sets.h"

namespace lidcam {

constinit LONG DefaultOfStored44 = 0;

}  // namespace lidcam
