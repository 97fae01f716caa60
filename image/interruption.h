// SPDX-License-Identifier: MIT
// Ctrl+C, a closed terminal, a polite kill: unfinished outputs are removed first. A file goes at once. A folder cannot
// be removed in a signal's handler: while there is one, its writer looks at each of its files whether to end.
#pragma once

#include <filesystem>

namespace panoval::image
{

// From here on an interrupted program removes its unfinished outputs, and a write beyond a file-size limit is an error
// as any other.
void remove_outputs_on_interruption();

// Thrown where a folder is written; to be caught where the program ends, which finish() does as interrupted programs
// do.
struct Interruption {
    int number;

    void finish() const;
};

class InterruptionByHand
{
public:
    static void begin();
    static void end();

    // Throws an Interruption if there was one since begin.
    static void check();
};

// Files and folders that are removed at an interruption: a number to give back, or -1 where there is no room for more.
int remember_unfinished(const std::filesystem::path& path);
void forget_unfinished(int slot);

// Removes those files and folders: for the end of a program that nothing else tidies up.
void remove_unfinished_outputs();

int process_id();

} // namespace panoval::image
