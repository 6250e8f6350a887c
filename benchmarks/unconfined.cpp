#include "programs/confinement/confinement.h"

bool confine(Liberty /*liberty*/) {
    return true;
}
