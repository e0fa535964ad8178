#pragma once

namespace lidcam::app {

/// Replaces standard streams that were closed when the program began by a descriptor on which
/// every read and write fails: a file that is opened later can't get the number of one of them.
void KeepStandardStreamsApart();

/// Flushes standard output. Throws CommandError if this or an earlier write failed.
void RequireStandardOutput();

}  // namespace lidcam::app
