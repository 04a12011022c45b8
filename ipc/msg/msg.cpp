#include "ipc/msg/msg.h"

#include "ipc/network/serving.h"
#include "ipc/network/socket.h"
#include "util/util.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include <strings.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int listen_backlog = 10;
constexpr int buffer_capacity = MSG_BUFFER_SIZE - 1;
constexpr char frame_mark = '$';
constexpr char line_end = '\n';
constexpr std::string_view arguments_mark = "::";
constexpr std::string_view reply = "OK\n";
constexpr int incomplete = 0; // as an item's size

struct FrameHeader {
    char mark;
    char free;
    std::uint8_t length[2]; // of the body, little-endian
};
static_assert(sizeof(FrameHeader) == 4 && offsetof(FrameHeader, length) == 2);

constexpr int frame_header_size = sizeof(FrameHeader);

// Removes a descriptor event and closes its descriptor.
void end_service(event *served)
{
    remove_event(served);
    close(served->fd);
}

// What a server has besides the described record, which it is allocated with.
struct Handle : msg_handle {
    ~Handle();

    va::Owner<event, end_service> events[FD_SETSIZE]; // by descriptor
    va::EventOwner accept_pause;                      // socket mode: after a failed accept
    msg_unknown unknown{};
};

Handle *own(msg_handle *handle)
{
    return static_cast<Handle *>(handle);
}

Handle::~Handle()
{
    for (const msg_command *command : commands)
        delete command;
    delete extend;
    delete others;
}

event *serve(Handle *handle, Fd fd, event_callback callback)
{
    event *const added = add_fd_event(fd.get(), 0, 0, callback, static_cast<msg_handle *>(handle));
    if (added)
        handle->events[fd.release()].reset(added);
    return added;
}

// Also when another part of the program has put it on the loop.
void stop_serving(Handle *handle, event *served)
{
    if (handle->events[served->fd].get() == served)
        handle->events[served->fd].reset();
    else
        end_service(served);
}

int frame_size(const char *frame, int available)
{
    if (available < frame_header_size)
        return incomplete;
    const int size = frame_header_size + buf2short(frame + offsetof(FrameHeader, length));
    return size <= available ? size : incomplete;
}

int line_size(const char *line)
{
    const char *end = std::strchr(line, line_end);
    return end ? static_cast<int>(end - line) + 1 : incomplete;
}

// A zero byte stands behind the `available` bytes.
int item_size(const char *item, int available)
{
    return *item == frame_mark ? frame_size(item, available) : line_size(item);
}

bool has_name(const msg_command &command, std::string_view name)
{
    return std::strlen(command.name) == name.size() &&
           strncasecmp(command.name, name.data(), name.size()) == 0;
}

void note_unknown(msg_unknown &unknown, std::string_view line)
{
    ++unknown.count;
    const std::string_view kept = line.substr(0, MSG_UNKNOWN_SIZE - 1);
    std::ranges::transform(kept, unknown.last, [](char letter) {
        return letter >= ' ' && letter <= '~' ? letter : '?';
    });
    unknown.last[kept.size()] = '\0';
}

void handle_line(Handle *handle, const char *line, int length)
{
    const std::string_view text(line, static_cast<std::size_t>(length));
    const std::string_view name = text.substr(0, text.find(arguments_mark));
    bool matched = false;
    for (int i = 0; i < handle->count; ++i) {
        msg_command &command = *handle->commands[i];
        if (!has_name(command, name))
            continue;
        matched = true;
        if (!std::exchange(command.handled, 1))
            command.callback(command.arg, line, length);
    }
    if (matched)
        return;
    note_unknown(handle->unknown, text);
    if (handle->others)
        handle->others->callback(handle->others->arg, line, length);
}

void handle_item(Handle *handle, char *item, int size)
{
    if (*item != frame_mark) {
        item[size - 1] = '\0';
        handle_line(handle, item, size - 1);
    } else if (handle->extend) {
        handle->extend->callback(handle->extend->arg, item, size);
    }
}

void begin_batch(msg_handle *handle, int received)
{
    for (int i = 0; i < handle->count; ++i)
        handle->commands[i]->handled = 0;
    handle->used += received;
    handle->buffer[handle->used] = '\0';
}

void answer_and_close(Handle *handle, event *connection)
{
    // A client may have gone already.
    send(connection->fd, reply.data(), reply.size(), MSG_NOSIGNAL);
    stop_serving(handle, connection);
}

void handle_items(Handle *handle, event *source)
{
    bool to_answer = handle->mode == MSG_SOCKET;
    int done = 0;
    while (done < handle->used) {
        char *const item = handle->buffer + done;
        const int size = item_size(item, handle->used - done);
        if (size == incomplete)
            break;
        handle_item(handle, item, size);
        if (std::exchange(to_answer, false))
            answer_and_close(handle, source);
        done += size;
    }
    handle->used -= done;
    std::memmove(handle->buffer, handle->buffer + done, static_cast<std::size_t>(handle->used));
}

int start_socket(Handle *handle)
{
    int listener = -1;
    if (unix_domain_socket_init(&listener, handle->path, listen_backlog) == -1)
        return -1;
    event *const served = serve(handle, Fd(listener), socket_accept);
    if (!served)
        return -1;
    handle->accept_pause = va::add_accept_pause(served);
    if (handle->accept_pause)
        return 0;
    stop_serving(handle, served);
    return -1;
}

// Opening it would empty it.
bool is_file(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

int start_fifo(Handle *handle)
{
    handle->mode = MSG_FIFO;
    Fd fifo(is_file(handle->path) ? -1 : pipe_open(handle->path));
    if (!fifo || !serve(handle, std::move(fifo), msg_read)) {
        std::puts("msg_start: fail !");
        return -1;
    }
    return 0;
}

msg_command *new_command(std::string_view name, msg_callback callback, void *arg)
{
    auto *const command = new (std::nothrow) msg_command{};
    if (command) {
        std::ranges::copy(name, command->name);
        command->callback = callback;
        command->arg = arg;
    }
    return command;
}

} // namespace

int msg_init(msg_handle **slot, msg_conf conf)
{
    if (!slot)
        return -1;
    std::unique_ptr<Handle> handle(new (std::nothrow) Handle{});
    if (!handle) {
        std::printf("%s:Can't alloc memory!\n", __func__);
        return -1;
    }
    std::memcpy(handle->path, conf.path, MSG_PATH_SIZE - 1);
    handle->mode = conf.mode;
    *slot = handle.release();
    return 0;
}

int msg_register(msg_handle *handle, const char *name, msg_callback callback, void *arg)
{
    if (!handle)
        return -1;
    if (handle->count == MSG_MAX_COMMANDS) {
        std::printf("%s(): Can't register. Reach max config number %d!\n", __func__,
                    MSG_MAX_COMMANDS);
        return -1;
    }
    if (std::strlen(name) >= MSG_NAME_SIZE)
        return -1;
    msg_command *const command = new_command(name, callback, arg);
    if (!command)
        return -1;
    handle->commands[handle->count++] = command;
    return 0;
}

int msg_registerExtend(msg_handle *handle, msg_callback callback, void *arg)
{
    if (!handle)
        return -1;
    if (handle->extend) {
        std::printf("%s: Already register before !\n", __func__);
        return -1;
    }
    handle->extend = new (std::nothrow) msg_extend{callback, arg};
    if (!handle->extend) {
        std::printf("%s: Can't alloc memory !\n", __func__);
        return -1;
    }
    return 0;
}

int msg_registerOthers(msg_handle *handle, msg_callback callback, void *arg)
{
    if (!handle)
        return -1;
    if (handle->others) {
        std::printf("%s(): Can't register. Already set before !\n", __func__);
        return -1;
    }
    handle->others = new_command("", callback, arg);
    return handle->others ? 0 : -1;
}

int msg_get_unknown(const msg_handle *handle, msg_unknown *unknown)
{
    if (!handle || !unknown)
        return -1;
    assert(is_loop_thread());
    *unknown = static_cast<const Handle *>(handle)->unknown;
    return 0;
}

int msg_start(msg_handle *handle)
{
    if (!handle)
        return -1;
    assert(is_loop_thread());
    return handle->mode == MSG_SOCKET ? start_socket(own(handle)) : start_fifo(own(handle));
}

std::int32_t msg_read(event_info *info, void *arg)
{
    auto *const handle = own(static_cast<msg_handle *>(arg));
    assert(is_loop_thread());
    const int fd = info->event->fd;
    const auto room = static_cast<std::size_t>(buffer_capacity - handle->used);
    const auto received = static_cast<int>(read(fd, handle->buffer + handle->used, room));
    if (received == -1 && (errno == EAGAIN || errno == EINTR))
        return 0;
    if (received <= 0) {
        std::printf("%s(): error ************************************!\n", __func__);
        stop_serving(handle, info->event);
        return 0;
    }
    begin_batch(handle, received);
    handle_items(handle, info->event);
    return 0;
}

std::int32_t socket_accept(event_info *info, void *arg)
{
    auto *const handle = own(static_cast<msg_handle *>(arg));
    assert(is_loop_thread());
    int accepted = -1;
    const int result = unix_domain_socket_accept(info->event->fd, &accepted);
    if (result == 1) {
        Fd connection(accepted);
        if (!va::set_non_blocking(connection.get()) ||
            !serve(handle, std::move(connection), msg_read))
            std::fprintf(stderr, "%s(): can't serve client.\n", __func__);
    } else if (result == -1 && handle->accept_pause && handle->accept_pause->arg == info->event) {
        // Not for a listener that another part of the program has put on the loop.
        va::pause_accepts(handle->accept_pause.get());
    }
    return 0;
}

int msg_release(msg_handle **slot)
{
    if (!slot)
        return -1;
    assert(is_loop_thread());
    delete own(std::exchange(*slot, nullptr));
    return 0;
}
