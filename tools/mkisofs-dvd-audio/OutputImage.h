#pragma once
// The image file being written: a temporary file beside the target, renamed
// over it only once every byte is written and flushed. Until then the target
// is untouched, and the temporary file goes on any failure or on a signal.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

struct WriteError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class OutputImage {
public:
    // Called with the number of bytes each time some are written.
    using Progress = std::function<void(std::uint64_t)>;

    OutputImage(std::string target, Progress progress);
    ~OutputImage();
    OutputImage(const OutputImage&) = delete;
    OutputImage& operator=(const OutputImage&) = delete;

    void create();
    void write(const void* data, std::size_t length);
    // Copies a file's `size` bytes and pads them to a whole sector; the file
    // must still have exactly that size.
    void copyFile(const std::string& path, std::uint64_t size);
    void commit();

private:
    [[noreturn]] void fail(const std::string& what, int error) const;

    std::string target_;
    std::string temporary_;
    Progress progress_;
    int fd_ = -1;
};
