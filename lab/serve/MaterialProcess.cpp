#include "lab/serve/MaterialAnswers.h"
#include "lab/serve/MaterialWorker.h"
#include "lab/serve/SendAll.h"

#include "lab/common/Text.h"

#include <array>
#include <sys/socket.h>

namespace lab::serve {
namespace {

bool SendAnswer(int socket, const HttpAnswer& answer) {
    return SendAll(socket, Format("%d %zu\n", answer.status, answer.body.size()) + answer.body);
}

} // namespace

int AnswerQuestions(int socket, const std::string& folder) {
    const Root root(folder);
    std::string questions;
    std::array<char, 65536> piece{};
    for (;;) {
        const ssize_t count = ::recv(socket, piece.data(), piece.size(), 0);
        if (count <= 0) {
            return 0; // the server is gone
        }
        questions.append(piece.data(), static_cast<std::size_t>(count));
        for (std::size_t end = questions.find('\n'); end != std::string::npos;
             end = questions.find('\n')) {
            if (!SendAnswer(socket, AnswerQuestion(root, questions.substr(0, end)))) {
                return 0;
            }
            questions.erase(0, end + 1);
        }
    }
}

} // namespace lab::serve
