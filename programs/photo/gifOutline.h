#pragma once

/// Whether the file open as `input`, a GIF, holds its first picture whole: what stands behind the data is the next
/// block or the end. Decoders do not tell, and show grey instead. The file offset is not used.
bool holdsWholeGif(int input);
