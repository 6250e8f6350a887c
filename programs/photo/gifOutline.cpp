#include "programs/photo/gifOutline.h"

#include "programs/photo/forwardBytes.h"

namespace {

constexpr int kExtension = 0x21;
constexpr int kPicture = 0x2C;
constexpr int kEnd = 0x3B;

/// @param flags  they tell whether there is a table, and of what size.
void skipColours(ForwardBytes& bytes, int flags) {
    constexpr int kHasTable = 0x80;
    if (flags >= 0 && (flags & kHasTable) != 0) {
        bytes.skip(std::size_t{6} << static_cast<unsigned>(flags & 7));
    }
}

/// False where the file ends before the data does.
bool skipData(ForwardBytes& bytes) {
    for (int size = bytes.next(); size >= 0; size = bytes.next()) {
        if (size == 0) {
            return true;
        }
        bytes.skip(static_cast<std::size_t>(size));
    }
    return false;
}

/// Moves behind the mark of the first picture.
bool findPicture(ForwardBytes& bytes) {
    int mark = bytes.next();
    while (mark == kExtension) {
        bytes.skip(1); // its kind
        if (!skipData(bytes)) {
            return false;
        }
        mark = bytes.next();
    }
    return mark == kPicture;
}

} // namespace

bool holdsWholeGif(int input) {
    ForwardBytes bytes(input);
    bytes.skip(10); // signature and size
    const int screenFlags = bytes.next();
    bytes.skip(2); // background and aspect
    skipColours(bytes, screenFlags);
    if (!findPicture(bytes)) {
        return false;
    }
    bytes.skip(8); // place and size
    skipColours(bytes, bytes.next());
    bytes.skip(1); // size of a code
    if (!skipData(bytes)) {
        return false;
    }
    const int mark = bytes.next();
    return mark < 0 || mark == kExtension || mark == kPicture || mark == kEnd;
}
