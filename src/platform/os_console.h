// Console keys as the Windows console runtime gives them (_getch, _kbhit), and the line read of
// the count prompts. Keys and lines come from one stream, so typed-ahead input keeps its order.
//
// Standard input that is not a console or terminal (a pipe, a file) is read byte by byte:
// LF and CR LF are Enter (13), and the end of input is ESC (27) on every later call, so a
// scripted run always ends.
#pragma once

namespace portwren::os {

inline constexpr int kKeyFunction = 0;    // first code of F1-F10 and keypad keys
inline constexpr int kKeyBackspace = 8;
inline constexpr int kKeyEnter = 13;
inline constexpr int kKeyEsc = 27;
inline constexpr int kKeyExtended = 224;  // first code of arrows, Home, End, F11, F12 ...

// Second codes after kKeyExtended (grey keys) or kKeyFunction (F1-F10).
inline constexpr int kKeyF1 = 59;  // F1..F10 are 59..68
inline constexpr int kKeyHome = 71;
inline constexpr int kKeyUp = 72;
inline constexpr int kKeyPageUp = 73;
inline constexpr int kKeyLeft = 75;
inline constexpr int kKeyRight = 77;
inline constexpr int kKeyEnd = 79;
inline constexpr int kKeyDown = 80;
inline constexpr int kKeyPageDown = 81;
inline constexpr int kKeyInsert = 82;
inline constexpr int kKeyDelete = 83;
inline constexpr int kKeyF11 = 133;
inline constexpr int kKeyF12 = 134;

// One key, without echo; waits for it. An extended key arrives as two calls: its prefix
// (kKeyExtended or kKeyFunction), then its code. Standard output is flushed first, so a
// prompt without a line end is visible. On a terminal the first call switches it to
// single-key mode; Ctrl+C still ends the program, and the terminal is put back on every way
// out (normal exit, SIGINT, SIGTERM, SIGHUP, SIGQUIT).
int GetKey();

// True while a key, or the second code of an extended key, is waiting (also at the end of
// piped input, which reads as ESC). Does not wait, except up to a few tens of milliseconds
// right after a lone ESC on a terminal, to tell it from the start of an escape sequence.
bool KeyWaiting();

// True once the input has ended (piped input ran out, a terminal hung up): from then on every
// key is the ESC of that end. Never on a Windows console.
bool KeyInputEnded();

// One line into buffer (at most capacity - 1 characters, NUL-terminated, without the line end;
// the rest of a longer line is dropped). A terminal shows what is typed and allows Backspace.
// False at the end of input with nothing read.
bool ReadLine(char* buffer, int capacity);

// Puts a terminal back into the mode it had before the first key was read. Runs by itself at
// exit; the next key read switches to single-key mode again. Nothing to do on Windows.
void RestoreConsole();

}  // namespace portwren::os
