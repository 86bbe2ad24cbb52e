#include "blockinputsource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace Engine {

namespace {

constexpr qpdf_offset_t BlockSize = 64 * 1024;

} // namespace

BlockInputSource::BlockInputSource(int fd, long long size, std::string name)
    : m_fd(fd)
    , m_size(size)
    , m_name(std::move(name))
    , m_block(size_t(BlockSize))
{}

bool BlockInputSource::load(qpdf_offset_t offset)
{
    if (offset < 0 || offset >= m_size) {
        return false;
    }
    const qpdf_offset_t start = offset - offset % BlockSize;
    if (start == m_blockStart) {
        return true;
    }
    const size_t wanted = size_t(std::min(BlockSize, m_size - start));
    size_t got = 0;
    while (got < wanted) {
        const ssize_t n = ::pread(m_fd, m_block.data() + got, wanted - got, off_t(start + got));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            m_blockStart = -1;
            throw std::system_error(errno, std::generic_category(), m_name + ": read failed");
        }
        if (n == 0) {
            m_blockStart = -1;
            throw std::runtime_error(m_name + ": the file got shorter while it was read");
        }
        got += size_t(n);
    }
    m_blockStart = start;
    return true;
}

size_t BlockInputSource::copyOut(qpdf_offset_t offset, char *buffer, size_t length)
{
    const size_t total
        = size_t(std::clamp<qpdf_offset_t>(m_size - offset, 0, qpdf_offset_t(length)));
    size_t done = 0;
    while (done < total) {
        const qpdf_offset_t at = offset + qpdf_offset_t(done);
        load(at);
        const qpdf_offset_t inBlock = at - m_blockStart;
        const size_t n = std::min(total - done, size_t(BlockSize - inBlock));
        std::memcpy(buffer + done, m_block.data() + inBlock, n);
        done += n;
    }
    return total;
}

size_t BlockInputSource::read(char *buffer, size_t length)
{
    if (m_position < 0) {
        throw std::logic_error(m_name + ": read before the beginning of the file");
    }
    last_offset = std::min(m_position, m_size);
    const size_t done = copyOut(m_position, buffer, length);
    m_position += qpdf_offset_t(done);
    return done;
}

std::string BlockInputSource::bytesAt(qpdf_offset_t offset, size_t length)
{
    std::string bytes(length, '\0');
    bytes.resize(offset < 0 ? 0 : copyOut(offset, bytes.data(), length));
    return bytes;
}

qpdf_offset_t BlockInputSource::findAndSkipNextEOL()
{
    if (m_position < 0) {
        throw std::logic_error(m_name + ": read before the beginning of the file");
    }
    const auto isEol = [](char c) { return c == '\r' || c == '\n'; };
    // The end of the line...
    while (load(m_position) && !isEol(m_block[size_t(m_position - m_blockStart)])) {
        ++m_position;
    }
    if (m_position >= m_size) {
        m_position = m_size;
        return m_size;
    }
    const qpdf_offset_t result = m_position;
    // ...and every end-of-line character after it.
    ++m_position;
    while (load(m_position) && isEol(m_block[size_t(m_position - m_blockStart)])) {
        ++m_position;
    }
    return result;
}

void BlockInputSource::seek(qpdf_offset_t offset, int whence)
{
    switch (whence) {
    case SEEK_SET:
        m_position = offset;
        break;
    case SEEK_END:
        m_position = m_size + offset;
        break;
    case SEEK_CUR:
        m_position += offset;
        break;
    default:
        throw std::logic_error(m_name + ": invalid seek");
    }
    if (m_position < 0) {
        throw std::runtime_error(m_name + ": seek before the beginning of the file");
    }
}

void BlockInputSource::unreadCh(char)
{
    if (m_position > 0) {
        --m_position;
    }
}

} // namespace Engine
