#pragma once

#include "video/clocks.h"
#include "video/reader.h"

// How far a file has been read, on standard error: each second on a terminal, else every ten.
class Progress
{
public:
    // After `looks` looks in all.
    void show(const Reader::State &reader, int looks);

    // Before something else is printed.
    void end_line();

private:
    Clock::time_point shown_ = Clock::now();
    int looks_ = 0;
    int all_ = 0;       // frames
    bool open_ = false; // the line on the terminal
};
