#pragma once

namespace lidcam::test {

/// True if a sanitizer is active in the program under test: slow tests then take a sample. Set when
/// the tests are linked, since their own code may be compiled once for several builds.
extern const bool kIsSanitized;

}  // namespace lidcam::test
