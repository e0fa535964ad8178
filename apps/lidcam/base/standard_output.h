#pragma once

namespace lidcam::app {

/// Gives standard streams that were closed when the program began something in their place on which
/// every read and write fails: a file that is opened later can't take the place of one of them.
void KeepStandardStreamsApart();

/// Brings what was printed so far to standard output. Throws CommandError if any of it, now or before,
/// did not get there.
void RequireStandardOutput();

}  // namespace lidcam::app
