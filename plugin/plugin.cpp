// Entry points of the plug-in library: the Qt 4 verification block, the Qt 5
// metadata and the instance function returning the one factory.
#include "host/interfaceids.h"
#include "plugin/cpibcrcashcontrolfactory.h"

#include <QPointer>
#include <QtPlugin>

#include <array>
#include <cstddef>

namespace {

// Read by Qt 4 hosts from the file before anything is resolved.
__attribute__((section(".qtplugin"), used)) const char verificationData[] =
    "pattern=QT_PLUGIN_VERIFICATION_DATA\n"
    "version=4.8.6\n"
    "debug=false\n"
    "buildkey=i386 linux g++-4 full-config";

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

QT_PLUGIN_METADATA_SECTION constexpr auto metaData =
    pluginMetaData(KELVORIN_CASH_CONTROL_IID, "CpiBcrCashControlFactory");

} // namespace

extern "C" Q_DECL_EXPORT const char* qt_plugin_query_verification_data()
{
    return verificationData;
}

extern "C" Q_DECL_EXPORT const char* qt_plugin_query_metadata()
{
    return reinterpret_cast<const char*>(metaData.data());
}

extern "C" Q_DECL_EXPORT QObject* qt_plugin_instance()
{
    // Initialised once, thread-safely, on the first call and destroyed at exit.
    // It follows the factory: once the host deletes it the next call makes another.
    static QPointer<QObject> instance;
    if (!instance) {
        instance = new hw::CpiBcrCashControlFactory;
    }
    return instance;
}
