#include "lab/serve/SendAll.h"

#include <sys/socket.h>
#include <sys/types.h>

namespace lab::serve {

bool SendAll(int socket, const std::string& text) {
    for (std::size_t sent = 0; sent < text.size();) {
        const ssize_t count = ::send(socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

} // namespace lab::serve
