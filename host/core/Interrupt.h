// Ctrl-C does not end this program at once: the running command stops at its next safe
// point, and cleans up as after any failure.
#pragma once

// Call once. While 'lock' runs another program, Ctrl-C also reaches that program.
void CatchInterrupts();
bool Interrupted();
// Throws HostError with Exit_Interrupted once Ctrl-C was pressed.
void StopIfInterrupted();
