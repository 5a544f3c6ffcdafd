#include <new>

#include "volume/VirtualVolumeImpl.h"

extern "C" {

IVirtualVolume* Quelcrypt_VolumeFactory() { return new (std::nothrow) VirtualVolume; }

void EnableAsserts(void*, void*) {}

void DisableAsserts(void*, void*) {}
}
