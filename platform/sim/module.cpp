#include "platform/sim/module.h"

#include "platform/sim/text.h"

int Module::open(bool library_is_open)
{
    return library_is_open ? step(State::closed, State::open, "opened") : refuse(EPERM);
}

void Module::force_close()
{
    step(state_, State::closed, "closed");
}

int Module::cancel_data()
{
    if (!is_open())
        return refuse(EPERM);
    if (!pending)
        return refuse(EAGAIN);
    pending->cancelled = true;
    pending = nullptr;
    return 0;
}

int Module::step(State from, State to, const char *what)
{
    if (::step(state_, from, to) == -1)
        return -1;
    if (from != to)
        say("%s %s", name_, what);
    return 0;
}

void report_foreign_pointer(const char *block)
{
    say("%s refused: the pointer is not the library's", block);
}
