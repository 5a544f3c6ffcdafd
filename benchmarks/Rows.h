// The rows of the table, by theme.
#pragma once

#include "Harness.h"

Row TransfersAtRisingOffsets();
Row ReadsAtRandomOffsets();
Row FirstRead();
Row CloseOfAChange();
Row ContainersAlone();
Row SecondRead();
Row TwoThreads();

Row OpeningPlain();
Row OpeningEncrypted();
Row Finding();
Row ListingPlain();
Row ListingWarm();
Row ListingCold();
Row Locking();
Row TracingNothing();

Row CompanionAlone();
