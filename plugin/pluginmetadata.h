#pragma once

// The plug-in's self-description for Qt 5's loader. Qt 4 reads only the verification block,
// so on Qt 4 the macro below declares nothing.
#include <QtPlugin>

#if QT_VERSION >= 0x050000

#include <array>
#include <cstddef>

namespace pluginmetadata {

// Qt 5 metadata as QPluginLoader reads it from the ".qtmetadata" section: the
// magic, the format and Qt version, then a CBOR map {2: IID, 3: class name}.
constexpr std::size_t cborTextSize(std::size_t length)
{
    return (length < 24 ? 1 : 2) + length;
}

template <std::size_t Size>
constexpr void putCborText(std::array<unsigned char, Size>& out, std::size_t& at, const char* text,
                           std::size_t length)
{
    if (length < 24) {
        out[at++] = static_cast<unsigned char>(0x60 + length);
    } else {
        out[at++] = 0x78;
        out[at++] = static_cast<unsigned char>(length);
    }
    for (std::size_t i = 0; i < length; ++i) {
        out[at++] = static_cast<unsigned char>(text[i]);
    }
}

template <std::size_t IidSize, std::size_t ClassSize>
constexpr auto pluginMetaData(const char (&iid)[IidSize], const char (&className)[ClassSize])
{
    static_assert(IidSize - 1 < 256 && ClassSize - 1 < 256, "texts longer than one CBOR length byte");
    constexpr char magic[] = "QTMETADATA !";
    std::array<unsigned char, sizeof(magic) - 1 + 4 + 1 + 1 + cborTextSize(IidSize - 1) + 1 +
                                  cborTextSize(ClassSize - 1) + 1>
        out{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < sizeof(magic) - 1; ++i) {
        out[at++] = static_cast<unsigned char>(magic[i]);
    }
    out[at++] = 0;
    out[at++] = QT_VERSION_MAJOR;
    out[at++] = QT_VERSION_MINOR;
    out[at++] = qPluginArchRequirements();
    out[at++] = 0xbf;
    out[at++] = 0x02;
    putCborText(out, at, iid, IidSize - 1);
    out[at++] = 0x03;
    putCborText(out, at, className, ClassSize - 1);
    out[at++] = 0xff;
    return out;
}

} // namespace pluginmetadata

// Defines the ".qtmetadata" section and the entry point that returns it.
#define CPIBCR_PLUGIN_METADATA(iid, className)                                                               \
    QT_PLUGIN_METADATA_SECTION constexpr auto cpibcrPluginMetaData =                                         \
        pluginmetadata::pluginMetaData(iid, className);                                                      \
    extern "C" Q_DECL_EXPORT const char* qt_plugin_query_metadata()                                          \
    {                                                                                                        \
        return reinterpret_cast<const char*>(cpibcrPluginMetaData.data());                                   \
    }

#else

#define CPIBCR_PLUGIN_METADATA(iid, className)

#endif
