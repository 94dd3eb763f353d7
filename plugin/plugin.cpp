// Entry points of the plug-in library: the Qt 4 verification block, the Qt 5
// metadata and the instance function returning the one factory.
#include "host/interfaceids.h"
#include "plugin/cpibcrcashcontrolfactory.h"
#include "plugin/pluginmetadata.h"

#include <QPointer>
#include <QtPlugin>

namespace {

// Read by Qt 4 hosts from the file before anything is resolved.
__attribute__((section(".qtplugin"), used)) const char verificationData[] =
    "pattern=QT_PLUGIN_VERIFICATION_DATA\n"
    "version=4.8.6\n"
    "debug=false\n"
    "buildkey=i386 linux g++-4 full-config";

} // namespace

extern "C" Q_DECL_EXPORT const char* qt_plugin_query_verification_data()
{
    return verificationData;
}

CPIBCR_PLUGIN_METADATA(KELVORIN_CASH_CONTROL_IID, "CpiBcrCashControlFactory")

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
