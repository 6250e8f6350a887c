// The C faces compile as C, each header alone.
#include "platform/fileSystem.h"
#include "platform/group.h"
#include "platform/mediaIndex.h"
#include "platform/process.h"
#include "util/file.h"

int main(void) {
    return 0;
}
