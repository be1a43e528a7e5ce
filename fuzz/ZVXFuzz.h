#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

/*
    What every fuzz target shares: the application object the library
    expects, silence in the log, and invariant checks that end the run (so
    that libFuzzer keeps the input that broke them).
*/
namespace ZVXFuzz {

enum class Application { Core, Gui };

//! Creates the application object once, with the offscreen platform for Gui, and drops log lines.
void setUp(Application application = Application::Core);

[[noreturn]] void fail(const char *condition, const char *file, int line);

//! The input without a copy: reads past its end are the sanitizer's to catch.
inline QByteArray view(const uint8_t *data, size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
}

//! Takes small choices off the front of an input; the rest is the payload.
class Reader
{
public:
    Reader(const uint8_t *data, size_t size)
        : m_data(data)
        , m_size(size)
    { }

    uint8_t byte() { return m_position < m_size ? m_data[m_position++] : 0; }
    uint16_t word() { return uint16_t(byte() << 8 | byte()); }
    //! Up to \a count bytes.
    QByteArray bytes(size_t count);
    //! Whatever is left.
    QByteArray rest() { return bytes(m_size - m_position); }

private:
    const uint8_t *m_data;
    size_t m_size;
    size_t m_position = 0;
};

} // namespace ZVXFuzz

//! The target's start, for libFuzzer and the replay driver alike: the application object.
#define ZVX_FUZZ_APPLICATION(application)                                                          \
    extern "C" int LLVMFuzzerInitialize(int *, char ***)                                           \
    {                                                                                              \
        ZVXFuzz::setUp(application);                                                               \
        return 0;                                                                                  \
    }

#define ZVX_FUZZ_CHECK(condition)                                                                  \
    ((condition) ? void(0) : ZVXFuzz::fail(#condition, __FILE__, __LINE__))
