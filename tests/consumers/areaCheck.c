// Calls the four C functions and prints their results. The C faces of the platform compile as C, too.
#include <platform/fileSystem.h>
#include <platform/group.h>
#include <platform/mediaIndex.h>
#include <platform/process.h>
#include <util/file.h>

#include <stdio.h>

int main(int argc, char** argv) {
    char directory[4096];
    const int found = GetTmpDownloadDir(directory, sizeof directory);
    const int quota = VEXODLQuotaCheck(4294967294U, directory, 1); // nobody has this number
    const int removed = argc > 1 ? RemoveTaskTemp(argv[1], 0) : -1;
    printf("%d %s %d %d %d\n", found, directory, TmpVolumeSpaceCheck(), removed, quota);
    return 0;
}
