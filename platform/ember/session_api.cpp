// The C border of all sessions.

#include <zel_debug.h>

#include <exception>

#include "consumer.h"
#include "provider.h"

zel_ember_session_t *zel_ember_session_init(const zel_ember_session_config_t *config)
{
    if (config == nullptr)
        return nullptr;
    try {
        if (config->provider_addr != nullptr)
            return zel::ember::consumer::create(*config).release();
        return zel::ember::provider::create(*config).release();
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory\n", __func__);
        return nullptr;
    }
}

void zel_ember_session_term(zel_ember_session_t *session)
{
    zel_ember_session::end(session);
}

void zel_ember_set_fds(zel_ember_session_t *session, fd_set *readfds, int *maxfd)
{
    if (session == nullptr || readfds == nullptr)
        return;
    if (session->fd() >= FD_SETSIZE) {
        log_message(0, "%s: Descriptor %d does not fit a descriptor set\n", __func__, session->fd());
        return;
    }
    FD_SET(session->fd(), readfds);
    if (maxfd != nullptr && *maxfd < session->fd())
        *maxfd = session->fd();
}

void zel_ember_process_fds(zel_ember_session_t *session, fd_set *readfds)
{
    if (session == nullptr)
        return;
    if (readfds == nullptr || session->fd() >= FD_SETSIZE || FD_ISSET(session->fd(), readfds))
        session->process();
}
