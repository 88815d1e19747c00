// The console's device database, allocated once per console run.
#include "chip/device_database.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): the device database
DrvCtrl *gDrvCtrl = nullptr;

int init_database() {
    if (gDrvCtrl == nullptr)
        gDrvCtrl = static_cast<DrvCtrl *>(std::malloc(sizeof(DrvCtrl)));
    // GCOVR_EXCL_START: the bench cannot make an allocation fail
    if (gDrvCtrl == nullptr) {
        std::printf("%s: alloc gDrvCtrl memory to store info fail!\n", "init_database");
        return -1;
    }
    // GCOVR_EXCL_STOP
    // Zeroing gives dropped_raw its starting value 0.
    std::memset(gDrvCtrl, 0, sizeof(DrvCtrl));
    return 0;
}

void free_database() {
    if (gDrvCtrl != nullptr) {
        std::free(gDrvCtrl);
        gDrvCtrl = nullptr;
    }
}
