#pragma once

/// What the markers of a JPEG file tell without decoding it.
struct JpegOutline {
    unsigned width = 0; ///< 0 where no frame header was found
    unsigned height = 0;
    bool complete = false; ///< a frame, and after it the end marker: the file was not cut short
};

/// Reads the markers of the file open as `input`, from its first byte to the end marker; what follows that is not read.
/// Segments are skipped by their length, so the pictures embedded in them do not count. The file offset is not used.
JpegOutline outlineJpeg(int input);
