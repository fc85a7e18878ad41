#pragma once

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/file/FileDescriptor.h"
#include "support/TempDirectory.h"

/// Stands at a socket in an agent's place and answers as the test says, so that lumctl meets answers that no
/// agent of this release gives. Serves one connection after the other.
class AnswerServer {
public:
    struct Answer {
        std::string bytes;    ///< empty for none
        bool isLast = false;  ///< the connection is closed then
    };
    /// What answers a request's target and body. Called on the server's thread.
    using Routine = std::function<Answer(const std::string& target, const std::string& body)>;
    using Pages = std::map<std::string, std::string>;

    explicit AnswerServer(Routine routine) : routine_(std::move(routine)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        GetPath().copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(bind(listener_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener_.Get(), 5), 0);
        thread_ = std::thread([this] { Serve(); });
    }
    /// Answers with the JSON that `pages` have for a target, whatever follows a ? there, and with HTTP status
    /// 404 where they have none.
    explicit AnswerServer(Pages pages)
        : AnswerServer([pages = std::move(pages)](const std::string& target, const std::string& /*body*/) {
              const auto page = pages.find(target.substr(0, target.find('?')));
              return Answer{page == pages.end() ? Reply("{}", 404) : Reply(page->second)};
          }) {}
    AnswerServer(const AnswerServer&) = delete;
    AnswerServer& operator=(const AnswerServer&) = delete;
    ~AnswerServer() {
        stop_ = true;
        shutdown(listener_.Get(), SHUT_RDWR);
        shutdown(connection_, SHUT_RDWR);
        thread_.join();
    }

    [[nodiscard]] std::string GetPath() const { return scratch_ / "agent.sock"; }
    /// The directory of the socket, in which lumctl looks for an agent's data.
    [[nodiscard]] const TempDirectory& GetScratch() const { return scratch_; }

    /// The bytes of a whole answer.
    [[nodiscard]] static std::string Reply(std::string_view body, int status = 200) {
        return "HTTP/1.1 " + std::to_string(status) + " -\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + std::string(body);
    }

private:
    void Serve() {
        while (!stop_) {
            const FileDescriptor connection(accept(listener_.Get(), nullptr, nullptr));
            connection_ = connection.Get();
            std::string received;
            while (!stop_ && AnswerOne(connection.Get(), received)) {
            }
            connection_ = -1;
        }
    }

    /// False where the connection is to be closed.
    bool AnswerOne(int connection, std::string& received) const {
        constexpr std::string_view kLength = "Content-Length: ";
        std::size_t end = 0;
        std::size_t length = 0;
        while ((end = received.find("\r\n\r\n")) == std::string::npos || received.size() < end + 4 + length) {
            char buffer[4096];
            const ssize_t count = recv(connection, buffer, sizeof(buffer), 0);
            if (count <= 0) {
                return false;
            }
            received.append(buffer, static_cast<std::size_t>(count));
            const std::size_t at = received.find(kLength);
            length = at == std::string::npos
                         ? 0
                         : std::strtoul(received.c_str() + at + kLength.size(), nullptr, 10);
        }
        const std::size_t target = received.find(' ') + 1;
        const Answer answer = routine_(received.substr(target, received.find(' ', target) - target),
                                       received.substr(end + 4, length));
        received.erase(0, end + 4 + length);
        const ssize_t sent = send(connection, answer.bytes.data(), answer.bytes.size(), MSG_NOSIGNAL);
        return sent >= 0 && !answer.isLast;
    }

    const Routine routine_;
    const TempDirectory scratch_;
    const FileDescriptor listener_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::atomic<bool> stop_{false};
    std::atomic<int> connection_{-1};
    std::thread thread_;
};

/// What tells of one model, Visit, with the parameters Who, a text, and Long, a number.
[[nodiscard]] inline AnswerServer::Pages VisitPages() {
    return {{"/actions/EventLogManagerGetModelNames",
             R"({"status":0,"container":{"Result":{"ModelName":["Visit"],"ModelEnabled":[true]}}})"},
            {"/actions/EventLogManagerGetModel",
             R"({"status":0,"container":{"Result":{"ModelDef":{"ModelName":"Visit","ModelVars":)"
             R"({"ModelVarName":["Who","Long"],"ModelVarType":["_STRING_","_INTEGER_"]}}}}})"}};
}

/// The same with another page, or one of them in another form.
[[nodiscard]] inline AnswerServer::Pages VisitPages(const std::string& target, const std::string& page) {
    AnswerServer::Pages pages = VisitPages();
    pages[target] = page;
    return pages;
}
