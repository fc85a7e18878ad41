#pragma once

#include <string>
#include <string_view>

/// What came back for one request.
struct HttpReply {
    int status = 0;      ///< 0: none came
    std::string header;  ///< status line and fields
    std::string body;
};

/// One connection to a Unix socket that speaks HTTP/1.1 byte by byte, so that a test may also break the
/// rules.
class HttpClient {
public:
    /// Connects; IsConnected says whether that went well.
    explicit HttpClient(const std::string& socketPath);
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;
    HttpClient(HttpClient&& other) noexcept;
    HttpClient& operator=(HttpClient&&) = delete;
    ~HttpClient();

    [[nodiscard]] bool IsConnected() const { return descriptor_ >= 0; }

    /// Sends bytes; false where the other side is gone.
    bool Send(std::string_view bytes) const;
    /// Sends a request with its length. False where the other side is gone.
    bool SendRequest(std::string_view method, std::string_view target, std::string_view body = {}) const;
    /// Says that no more is to come.
    void EndSending() const;
    /// Waits for the next reply. `hasBody` is false for the reply to HEAD, and for an interim one.
    [[nodiscard]] HttpReply ReadReply(bool hasBody = true);
    /// Waits for the next chunk of a chunked reply; empty for the last one, and where none comes.
    [[nodiscard]] std::string ReadChunk();
    [[nodiscard]] HttpReply Request(std::string_view method, std::string_view target,
                                    std::string_view body = {});
    /// Waits for the other side's end of the connection; false where more bytes come first.
    [[nodiscard]] bool WaitForEnd();

private:
    [[nodiscard]] bool Receive();

    int descriptor_ = -1;
    std::string received_;
};

/// One request on a connection of its own.
[[nodiscard]] HttpReply HttpRequest(const std::string& socketPath, std::string_view method,
                                    std::string_view target, std::string_view body = {});
