#include "plugin/cpibcrcashcontrolfactory.h"

#include "plugin/cpibcrcashcontrol.h"

namespace hw {

CpiBcrCashControlFactory::CpiBcrCashControlFactory(QObject* parent) : QObject(parent) {}

QVariant CpiBcrCashControlFactory::getObject()
{
    return QVariant::fromValue<QObject*>(new CpiBcrCashControl(nullptr));
}

} // namespace hw
