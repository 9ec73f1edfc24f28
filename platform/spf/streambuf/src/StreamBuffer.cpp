#include "agent/spf/streambuf/StreamBuffer.h"

#include "agent/spf/streambuf/StreamRequest.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace agent::spf::streambuf {

using agent::core::transport::Message;

namespace {

// Holds either a sink or a source; the other stays null.
class Device final : public StreamBuffer {
public:
    Device(std::shared_ptr<std::ostream> sink, std::shared_ptr<std::istream> source)
        : sink_(std::move(sink)), source_(std::move(source)) {
        if (!sink_ && !source_) {
            throw std::invalid_argument("Stream device needs a stream");
        }
    }

    ~Device() override {
        std::lock_guard<std::mutex> lock(streamMutex_);
        flushSink();
    }

    Message serve(const Message& request) override {
        if (request.empty()) {
            throw std::runtime_error("Invalid stream request");
        }
        std::lock_guard<std::mutex> lock(streamMutex_);
        if (closed_) {
            throw std::runtime_error("Exported stream is closed");
        }
        switch (static_cast<StreamRequest>(request.data()[0])) {
            case StreamRequest::write:
                return write(request.data() + 1, request.size() - 1);
            case StreamRequest::read:
                if (request.size() != 5) {
                    throw std::runtime_error("Invalid stream request");
                }
                return read(readCount(request.data() + 1));
            case StreamRequest::close:
                closed_ = true;
                flushSink();
                return Message();
        }
        throw std::runtime_error("Invalid stream request");
    }

    bool isClosed() const override {
        std::lock_guard<std::mutex> lock(streamMutex_);
        return closed_;
    }

private:
    static std::uint32_t readCount(const std::uint8_t* bytes) noexcept {
        return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 |
               std::uint32_t{bytes[3]};
    }

    // Call with streamMutex_ held.
    Message write(const std::uint8_t* data, std::size_t size) {
        if (!sink_) {
            throw std::runtime_error("Data source cannot be written");
        }
        sink_->write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!*sink_) {
            throw std::runtime_error("Data sink failed");
        }
        return Message();
    }

    // Call with streamMutex_ held.
    Message read(std::uint32_t count) {
        if (!source_) {
            throw std::runtime_error("Data sink cannot be read");
        }
        std::vector<std::uint8_t> bytes(std::min(count, kLargestRead));
        if (!bytes.empty() && *source_) {
            source_->read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
            bytes.resize(static_cast<std::size_t>(source_->gcount()));
        } else {
            bytes.clear();
        }
        return Message(std::move(bytes));
    }

    // A sink that fails to flush has already said so to the writes that failed.
    // Call with streamMutex_ held.
    void flushSink() noexcept {
        if (sink_) {
            try {
                sink_->flush();
            } catch (...) {
            }
        }
    }

    const std::shared_ptr<std::ostream> sink_;
    const std::shared_ptr<std::istream> source_;
    mutable std::mutex streamMutex_;  // guards the stream and closed_
    bool closed_ = false;
};

}  // namespace

std::unique_ptr<StreamBuffer> makeDevice(std::shared_ptr<std::ostream> sink) {
    return std::make_unique<Device>(std::move(sink), nullptr);
}

std::unique_ptr<StreamBuffer> makeDevice(std::shared_ptr<std::istream> source) {
    return std::make_unique<Device>(nullptr, std::move(source));
}

}  // namespace agent::spf::streambuf
