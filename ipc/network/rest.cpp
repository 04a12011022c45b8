#include "ipc/network/rest.h"

namespace
{

constexpr int rest_ms = 100;

std::int32_t wake_listener(event_info *info, void *accept_event)
{
    set_event_enabled(info->event, 0);
    set_event_enabled(static_cast<event *>(accept_event), 1);
    return 0;
}

} // namespace

va::EventOwner va::add_rest_timer(event *accept_event)
{
    return EventOwner(add_timer_event(rest_ms, EVENT_ASLEEP, wake_listener, accept_event));
}

void va::rest_listener(event *rest_timer)
{
    set_event_enabled(static_cast<event *>(rest_timer->arg), 0);
    resched_event(rest_timer, nullptr); // a sleeping timer is due one interval from now
}
