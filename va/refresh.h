#pragma once

// Reads a record afresh and takes it over if any byte differs from the live copy. Returns whether
// it did; an unchanged record is left untouched.
template <class Record, class Get>
bool refresh(Record &live, Get get, int (*compare)(const Record *, const Record *))
{
    Record fresh;
    get(&fresh);
    if (compare(&fresh, &live) == 0)
        return false;
    live = fresh;
    return true;
}
