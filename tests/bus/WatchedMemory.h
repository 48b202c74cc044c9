// Tells when somebody writes to memory that the main thread has given back at the end of the process.
//
// Once the program says so, each array that is deleted on that thread is kept for a moment, and looked at again. Qt's D-Bus
// thread lives until nearly the end of the process, and a list that is destroyed under it has only a few microseconds in
// which to be written to: without the moment this comes to light once in thousands of ends, as a corrupted heap.
#pragma once

/// From now on. What is found ends the process by abort(), after a line on stderr.
void watchDeletedMemory();
