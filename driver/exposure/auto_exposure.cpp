#include "driver/exposure/auto_exposure.h"

namespace lidcam {

constinit Shared<std::int32_t> AeIndex{0};

}  // namespace lidcam
