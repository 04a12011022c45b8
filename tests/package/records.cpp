#include "event/event.h"
#include "ipc/msg/msg.h"
#include "ipc/msg/msgcmd.h"
#include "ipc/network/sck_svr.h"
#include "ipc/network/spipe.h"
#include "util/sequence_pool.h"

#include <cstdio>

// What programs do with the records, which are plain: compiled, never run.
void use_records(event *timer, soft_queue *queue, msg_handle *handle, msgcmd *client,
                 sck_svr_t *results, spipe_server *server, seqpool *pool)
{
    const event timer_copy = *timer;
    auto flags = timer_copy.flags;
    timer->flags = flags | EVENT_REMOVED;
    std::printf("%d %u", client->fd, timer->flags);
    client->fd = -1;
    const soft_queue queue_copy = *queue;
    event *const events[] = {client->read_event, queue_copy.pipe_event, results->acceptEvent};
    int *const numbers[] = {server->clients, &handle->used, &queue->pipe_read, &pool->readPos};
    char *const texts[] = {client->path, handle->path, server->path, results->path};
    sck_clt_t peer = *results->clients;
    peer.send = {pool->pages[0], 0, 0, 0, 0};
    *results = {events[0]->fd, 0, &peer, events[1], texts[0], nullptr, numbers[0], {}};
}
