// Ctrl-C does not end this program at once: the running command stops at its next safe
// point, and cleans up as after any failure.
#pragma once

// Call once. While 'lock' runs another program, Ctrl-C also reaches that program.
void CatchInterrupts();
// Makes logoff and shutdown stop the command like Ctrl-C. A program that loads user32.dll learns of these only through a window, which
// this function makes on the current desktop ("SetConsoleCtrlHandler", "WM_ENDSESSION"). Call once.
void CatchEndOfSession();
bool Interrupted();
// Throws HostError with Exit_Interrupted once Ctrl-C was pressed.
void StopIfInterrupted();
