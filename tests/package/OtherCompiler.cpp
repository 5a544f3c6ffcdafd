// A whole host without a run-time library, for a compiler that lays out classes in its own way. Ends with 0 when each call met its slot.
#include "quelcrypt/IVirtualVolume.h"

extern "C" int Begin() {
    IVirtualVolume* const volume = Quelcrypt_VolumeFactory();
    const bool isRight = volume && volume->OpenFile(nullptr, nullptr, 0, 0, 0, nullptr, nullptr) == VVS_InvalidParameter &&
                         volume->GetSpace(nullptr, nullptr) > 0;
    if (volume)
        volume->Release();
    return isRight ? 0 : 1;
}
