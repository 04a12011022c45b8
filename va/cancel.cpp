#include "va/cancel.h"

#include <unistd.h>

int va_cancel(const VaContext *context, int (*cancel_data)())
{
    constexpr useconds_t retry_us = 100'000;
    while (cancel_data() != 0 && context->threadEnded != 1)
        usleep(retry_us);
    return 0;
}
