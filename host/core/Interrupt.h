// Ctrl-C does not end this program in the middle of something: it asks the running command to stop at its next safe
// point, where it cleans up like after any failure.
#pragma once

// Call once. In the middle of a command of another program (see 'lock') the request reaches that program as well.
void CatchInterrupts();
bool Interrupted();
// Throws HostError with Exit_Interrupted once Ctrl-C was pressed.
void StopIfInterrupted();
