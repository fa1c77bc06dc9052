// Which of the program's threads is printing: the one-character mark at the start of log lines.
#pragma once

namespace portwren {

enum class ThreadRole { kMain, kCommMonitor, kReader, kEchoPush, kEchoPull };

// Each thread records itself when it starts; worker threads clear themselves when they end.
void RegisterThread(ThreadRole role);
void UnregisterThread(ThreadRole role);

// ' ' main, '*' comm-event monitor, '#' reader, '>' echo pushing, '<' echo pulling, '?' any other.
char ThreadMark();

}  // namespace portwren
