#include "pngfile.h"

#include <QSaveFile>
#include <QThread>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>
#include <zlib.h>

namespace Png {

namespace {

// A horizontal band of the image, filtered and deflated on its own; the bands' raw deflate
// streams are joined into the one zlib stream of the file.
struct Band
{
    int firstRow = 0;
    int endRow = 0;
    bool last = false;
    QByteArray deflated;
    uLong adler = 1;
    uLong length = 0;
    bool ok = false;
};

class Encoder
{
public:
    explicit Encoder(const QImage &image)
        : m_alpha(image.hasAlphaChannel())
        , m_image(image.convertToFormat(m_alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB32))
        , m_rowBytes(size_t(m_image.width()) * (m_alpha ? 4 : 3))
    {}

    bool alpha() const { return m_alpha; }

    // The pixels of row y as the file stores them.
    void pixels(int y, unsigned char *out) const
    {
        if (m_alpha) {
            std::memcpy(out, m_image.constScanLine(y), m_rowBytes);
            return;
        }
        const auto *line = reinterpret_cast<const QRgb *>(m_image.constScanLine(y));
        const int width = m_image.width();
        for (int x = 0; x < width; ++x) {
            const QRgb p = line[x];
            out[0] = uchar(qRed(p));
            out[1] = uchar(qGreen(p));
            out[2] = uchar(qBlue(p));
            out += 3;
        }
    }

    void encodeBand(Band &band) const
    {
        z_stream z{};
        // Raw deflate: the bands are joined under one zlib header and checksum.
        if (deflateInit2(&z, Z_BEST_SPEED, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
            return;
        }
        std::vector<unsigned char> previous(m_rowBytes, 0);
        std::vector<unsigned char> current(m_rowBytes);
        std::vector<unsigned char> filtered(m_rowBytes + 1);
        filtered[0] = 2; // "up": each byte minus the one above it
        if (band.firstRow > 0) {
            pixels(band.firstRow - 1, previous.data());
        }
        const size_t rawLength = size_t(band.endRow - band.firstRow) * (m_rowBytes + 1);
        band.deflated.resize(qsizetype(std::max<size_t>(rawLength / 8, 4096)));
        z.next_out = reinterpret_cast<Bytef *>(band.deflated.data());
        z.avail_out = uInt(band.deflated.size());
        const auto grow = [&] {
            const qsizetype used = qsizetype(z.total_out);
            band.deflated.resize(band.deflated.size() * 2);
            z.next_out = reinterpret_cast<Bytef *>(band.deflated.data()) + used;
            z.avail_out = uInt(band.deflated.size() - used);
        };
        bool ok = true;
        for (int y = band.firstRow; y < band.endRow && ok; ++y) {
            pixels(y, current.data());
            for (size_t i = 0; i < m_rowBytes; ++i) {
                filtered[i + 1] = uchar(current[i] - previous[i]);
            }
            std::swap(previous, current);
            band.adler = adler32(band.adler, filtered.data(), uInt(filtered.size()));
            z.next_in = filtered.data();
            z.avail_in = uInt(filtered.size());
            while (z.avail_in > 0 && ok) {
                if (z.avail_out == 0) {
                    grow();
                }
                ok = deflate(&z, Z_NO_FLUSH) == Z_OK;
            }
        }
        // The last band ends the stream; the others end on a byte boundary so the next band's
        // stream can follow.
        const int flush = band.last ? Z_FINISH : Z_SYNC_FLUSH;
        while (ok) {
            if (z.avail_out == 0) {
                grow();
            }
            const int status = deflate(&z, flush);
            if (status == Z_STREAM_END) {
                break;
            }
            ok = status == Z_OK || (status == Z_BUF_ERROR && !band.last);
            if (ok && !band.last && z.avail_out > 0) {
                break; // flushed
            }
        }
        band.length = uLong(rawLength);
        band.deflated.resize(qsizetype(z.total_out));
        band.ok = ok;
        deflateEnd(&z);
    }

    // The zlib stream of the filtered image, or empty when zlib fails.
    QByteArray compress() const
    {
        const int height = m_image.height();
        const int threads = std::clamp(QThread::idealThreadCount(), 1, 8);
        // Bands of fewer rows than this cost more in thread start-up than they save.
        const int minimumRows = 128;
        const int count = std::clamp(height / minimumRows, 1, threads);
        std::vector<Band> bands(static_cast<size_t>(count));
        for (int i = 0; i < count; ++i) {
            bands[size_t(i)].firstRow = int(qint64(height) * i / count);
            bands[size_t(i)].endRow = int(qint64(height) * (i + 1) / count);
            bands[size_t(i)].last = i == count - 1;
        }
        std::vector<std::thread> workers;
        for (int i = 1; i < count; ++i) {
            workers.emplace_back([this, &bands, i] { encodeBand(bands[size_t(i)]); });
        }
        encodeBand(bands[0]);
        for (auto &worker : workers) {
            worker.join();
        }

        QByteArray stream;
        qsizetype total = 6;
        for (const Band &band : bands) {
            if (!band.ok) {
                return {};
            }
            total += band.deflated.size();
        }
        stream.reserve(total);
        stream.append(char(0x78)).append(char(0x01)); // deflate, 32 KB window, fastest
        uLong adler = adler32(0, nullptr, 0);
        for (const Band &band : bands) {
            stream.append(band.deflated);
            adler = adler32_combine(adler, band.adler, z_off_t(band.length));
        }
        for (int shift = 24; shift >= 0; shift -= 8) {
            stream.append(char((adler >> shift) & 0xff));
        }
        return stream;
    }

private:
    bool m_alpha;
    QImage m_image;
    size_t m_rowBytes;
};

void appendUInt32(QByteArray &out, quint32 value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.append(char((value >> shift) & 0xff));
    }
}

void appendChunk(QByteArray &out, const char *type, const char *data, qsizetype length)
{
    appendUInt32(out, quint32(length));
    const qsizetype start = out.size();
    out.append(type, 4);
    out.append(data, length);
    const uLong crc
        = crc32(0, reinterpret_cast<const Bytef *>(out.constData() + start), uInt(length + 4));
    appendUInt32(out, quint32(crc));
}

} // namespace

QByteArray encode(const QImage &image)
{
    if (image.isNull()) {
        return {};
    }
    const Encoder encoder(image);
    const QByteArray stream = encoder.compress();
    if (stream.isEmpty()) {
        return {};
    }
    QByteArray out;
    out.reserve(stream.size() + 128);
    out.append("\x89PNG\r\n\x1a\n", 8);

    QByteArray header;
    appendUInt32(header, quint32(image.width()));
    appendUInt32(header, quint32(image.height()));
    header.append(char(8));                       // bits per sample
    header.append(char(encoder.alpha() ? 6 : 2)); // RGBA or RGB
    header.append(char(0)).append(char(0)).append(
        char(0)); // deflate, standard filters, no interlace
    appendChunk(out, "IHDR", header.constData(), header.size());

    if (image.dotsPerMeterX() > 0 && image.dotsPerMeterY() > 0) {
        QByteArray physical;
        appendUInt32(physical, quint32(image.dotsPerMeterX()));
        appendUInt32(physical, quint32(image.dotsPerMeterY()));
        physical.append(char(1)); // per metre
        appendChunk(out, "pHYs", physical.constData(), physical.size());
    }

    // Chunks of at most 1 GiB; a page image is far below that.
    const qsizetype chunk = qsizetype(1) << 30;
    for (qsizetype at = 0; at < stream.size(); at += chunk) {
        appendChunk(out, "IDAT", stream.constData() + at, std::min(chunk, stream.size() - at));
    }
    appendChunk(out, "IEND", nullptr, 0);
    return out;
}

bool save(const QImage &image, const QString &path, QString *error)
{
    const QByteArray bytes = encode(image);
    if (bytes.isEmpty()) {
        if (error) {
            *error = QStringLiteral("there is no image to write");
        }
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error) {
            *error = file.errorString();
        }
        return false;
    }
    return true;
}

} // namespace Png
