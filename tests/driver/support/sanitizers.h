#pragma once

namespace lidcam::test {

/// A sanitizer watches the program under test: what it slows down too much takes a sample. Told when the
/// tests are linked, since their own code may be compiled once for several builds.
extern const bool kIsSanitized;

}  // namespace lidcam::test
