// The changer as an object: its construction and its acceptance poll timer.
#include "changer/changer.h"

#include "changer/changerdetail.h"
#include "host/timer.h"

#include <QMetaType>

namespace CcTalk {

using namespace changer;

bool Changer::needReset = false;

Changer::Changer(QObject* parent) : Device(parent), pollTimer(new Timer(this)), reserved(-1), accepting(false)
{
    if (!QMetaType::type("SumDetailed"))
        qRegisterMetaType<SumDetailed>("SumDetailed");
    pollTimer->setInterval(pollIntervalMsecs);
    pollTimer->setSingleShot(true);
    QObject::connect(pollTimer, SIGNAL(timeout()), this, SLOT(checkMoneyIn()));
}

Changer::~Changer() = default;

} // namespace CcTalk
