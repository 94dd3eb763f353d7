#include "portscommand.h"

#include "hostkit/serialports.h"

namespace tool {

int listPorts(const Arguments&, const Console& console)
{
    const QList<hostkit::SerialPortEntry> ports = hostkit::availableSerialPorts();
    if (console.json())
        console.document(hostkit::serialPortsDocument(ports));
    else
        console.out(hostkit::serialPortsTable(ports));
    return 0;
}

} // namespace tool
