#include "blockinputsource.h"

#include <qpdf/QPDFSystemError.hh>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Engine {

namespace {

constexpr qpdf_offset_t BlockSize = 64 * 1024;
// A file up to this size is read whole at its first read: its parse and the copy of its streams
// then read it once.
constexpr qpdf_offset_t SmallFileSize = 1024 * 1024;
// A reader that keeps jumping about a file (a writer copying the streams of a page, one piece
// of a split after another) loads a block for every stream it reads. Once it has loaded this
// many blocks more than the file holds, a file up to WholeFileSize is read whole, once.
constexpr qpdf_offset_t ExtraLoads = 16;
constexpr qpdf_offset_t WholeFileSize = 128 * 1024 * 1024;

} // namespace

BlockInputSource::BlockInputSource(int fd, long long size, std::string name)
    : m_fd(fd)
    , m_size(size)
    , m_name(std::move(name))
    , m_blockSize(size > 0 && size <= SmallFileSize ? size : BlockSize)
{}

std::shared_ptr<BlockInputSource> BlockInputSource::open(const std::string &path, OpenFiles *group)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        const int error = errno;
        if (fd >= 0) {
            ::close(fd);
        }
        throw QPDFSystemError("open " + path, error);
    }
    auto source = std::make_shared<BlockInputSource>(fd, info.st_size, path);
    source->m_owned = true;
    source->m_group = group;
    source->m_device = info.st_dev;
    source->m_inode = info.st_ino;
    if (group) {
        group->opened(source.get());
    }
    return source;
}

BlockInputSource::~BlockInputSource()
{
    release();
}

void BlockInputSource::release()
{
    if (!m_owned) {
        return;
    }
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
        if (m_group) {
            m_group->closed(this);
        }
    }
    m_block.reset();
    m_capacity = 0;
    m_blockStart = -1;
}

void BlockInputSource::join(OpenFiles *group)
{
    if (!m_owned || m_group || !group) {
        return;
    }
    m_group = group;
    if (m_fd >= 0) {
        group->opened(this);
    }
}

void BlockInputSource::reopen()
{
    const int fd = ::open(m_name.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info;
    if (fd < 0 || ::fstat(fd, &info) != 0) {
        const int error = errno;
        if (fd >= 0) {
            ::close(fd);
        }
        throw QPDFSystemError("open " + m_name, error);
    }
    if (info.st_dev != m_device || info.st_ino != m_inode || info.st_size != m_size) {
        ::close(fd);
        throw std::runtime_error(m_name + ": the file was replaced while it was read");
    }
    m_fd = fd;
    if (m_group) {
        m_group->opened(this);
    }
}

bool BlockInputSource::load(qpdf_offset_t offset)
{
    if (offset < 0 || offset >= m_size) {
        return false;
    }
    if (m_blockStart >= 0 && offset >= m_blockStart && offset - m_blockStart < m_blockSize) {
        return true;
    }
    if (m_blockSize < m_size && m_size <= WholeFileSize
        && ++m_loads > 2 * (m_size / BlockSize) + ExtraLoads) {
        m_blockSize = m_size;
    }
    const qpdf_offset_t start = offset - offset % m_blockSize;
    if (m_fd < 0) {
        reopen();
    }
    if (m_capacity < m_blockSize) {
        m_block.reset(new char[size_t(m_blockSize)]); // not cleared: every byte used is read first
        m_capacity = m_blockSize;
    }
    const size_t wanted = size_t(std::min(m_blockSize, m_size - start));
    size_t got = 0;
    while (got < wanted) {
        const ssize_t n = ::pread(m_fd, m_block.get() + got, wanted - got, off_t(start + got));
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
        const size_t n = std::min(total - done, size_t(m_blockSize - inBlock));
        std::memcpy(buffer + done, m_block.get() + inBlock, n);
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

void OpenFiles::opened(BlockInputSource *source)
{
    m_open.push_back(source);
    while (m_open.size() > m_limit) {
        BlockInputSource *oldest = m_open.front();
        m_open.pop_front();
        oldest->release();
    }
}

void OpenFiles::closed(BlockInputSource *source)
{
    const auto found = std::find(m_open.begin(), m_open.end(), source);
    if (found != m_open.end()) {
        m_open.erase(found);
    }
}

void BlockInputSource::unreadCh(char)
{
    if (m_position > 0) {
        --m_position;
    }
}

} // namespace Engine
