#pragma once

#include "video/clocks.h"

// How far a file has been read, on standard error: each second on a terminal, else every ten.
class Progress
{
public:
    // `read` of `total` frames, after `looks` looks in all.
    void show(int read, int total, int looks);

    // Before something else is printed.
    void end_line();

private:
    Clock::time_point shown_ = Clock::now();
    int looks_ = 0;
    int read_ = 0;
    bool open_ = false; // the line on the terminal
};
