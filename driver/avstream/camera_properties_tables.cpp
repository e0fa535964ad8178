#include "driver/avstream/camera_properties_tables.h"

namespace lidcam {

constinit LONG DefaultOfStored44 = 0;

}  // namespace lidcam
