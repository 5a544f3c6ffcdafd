// Ctrl-C does not end this program in the middle of something: it asks the running command to stop at its next safe
// point, where it cleans up like after any failure.
#pragma once

// Call once. In the middle of a command of another program (see 'lock') the request reaches that program as well.
void CatchInterrupts();
// Also the end of the session, by logoff or shutdown, asks the command to stop: a program that uses the libraries of windows is told of it
// through a window alone, which this makes, on the desktop of this moment ("SetConsoleCtrlHandler", "WM_ENDSESSION"). Call once.
void CatchEndOfSession();
bool Interrupted();
// Throws HostError with Exit_Interrupted once Ctrl-C was pressed.
void StopIfInterrupted();
