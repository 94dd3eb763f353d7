#pragma once

#include <QObject>
#include <QVariant>

namespace hw {

// The plug-in's root object: hands out drivers to the host.
class CpiBcrCashControlFactory : public QObject
{
    Q_OBJECT
public:
    explicit CpiBcrCashControlFactory(QObject* parent = nullptr);

public slots:
    // A new hw::CpiBcrCashControl without parent, as QObject*; the caller owns it.
    QVariant getObject();
};

} // namespace hw
