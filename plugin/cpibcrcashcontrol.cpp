#include "plugin/cpibcrcashcontrol.h"

#include "cashcontrol/units.h"
#include "changer/changer.h"
#include "host/abstractserialdevice.h"
#include "host/qtcompat.h"
#include "host/timer.h"
#include "plugin/recordedline.h"

#include <limits>

namespace hw {

namespace {

const unsigned char busAddress = 55;
const int asyncCheckMsecs = 60000;
const long long maxHopperCount = std::numeric_limits<unsigned short>::max();
const long long maxPayoutCount = std::numeric_limits<unsigned int>::max();

// "hopper3" is hopper 3 on the bus; a name without a number is hopper 0.
unsigned char hopperNumber(const CashControlUnit& unit)
{
    return static_cast<unsigned char>(QString(unit.name).remove(QStringLiteral("hopper")).toUInt());
}

} // namespace

CpiBcrCashControl::CpiBcrCashControl(QObject* parent) : CpiBcrCashControl(parent, nullptr) {}

CpiBcrCashControl::CpiBcrCashControl(QObject* parent, CcTalk::Changer* device) : BasicCashControl(parent)
{
    serial = nullptr;
    asyncEnabled = false;
    timer = new Timer(this);
    line.reset(new RecordedLine);

    logger = logging::logger("cpibcr");

    type = cashunits::coinDevice;
    setOption(ECashControl::Option(1), true);

    if (device) {
        device->setParent(this);
        changer = device;
    } else {
        changer = new CcTalk::Changer(this);
    }
    changer->setLogger(logger);
    changer->setAddress(busAddress);

    // By signature: Qt 4 has no connections by member pointer.
    QObject::connect(changer, SIGNAL(received(SumDetailed)), this, SIGNAL(received(SumDetailed)));
    QObject::connect(changer, SIGNAL(error(QString)), this, SIGNAL(error(QString)));

    QObject::connect(timer, SIGNAL(timeout()), this, SLOT(asyncCheckState()));
    timer->setInterval(asyncCheckMsecs);
    timer->setSingleShot(true);
}

CpiBcrCashControl::~CpiBcrCashControl() = default;

QVariant CpiBcrCashControl::getSerialObject() const
{
    return QVariant::fromValue<QObject*>(dynamic_cast<QObject*>(serial));
}

void CpiBcrCashControl::setSerialObject(const QVariant& value)
{
    QObject* object = value.canConvert<QObject*>() ? value.value<QObject*>() : nullptr;
    serial = qobject_cast<AbstractSerialDevice*>(object);
    // The port's name for the recording's header: the host object's name, else its class.
    QString portName;
    if (serial)
        portName = object->objectName().isEmpty() ? QString::fromLatin1(object->metaObject()->className())
                                                  : object->objectName();
    line->setDevice(serial, portName);
    changer->setSerial(serial ? line.get() : nullptr);
}

void CpiBcrCashControl::init()
{
    if (!serial) {
        return;
    }
    line->setBaudRate(QStringLiteral("115200"));
    line->setDataBits(QStringLiteral("8"));
    line->setParity(QStringLiteral("None"));
    line->setStopBits(QStringLiteral("1"));
    line->setFlowControl(QStringLiteral("Disable"));
}

void CpiBcrCashControl::connect()
{
    logging::info(logger, QStringLiteral("Инициализация устройства"));
    if (!serial) {
        throwError(QStringLiteral("Не настроен порт"), true);
    }
    line->beginRecording();
    guarded([&] { changer->init(); });
}

void CpiBcrCashControl::checkState()
{
    guarded([&] { changer->checkState(); });
}

void CpiBcrCashControl::cashInStart(bool fast, const QSet<unsigned int>& excludedDenoms)
{
    logging::info(logger, QStringLiteral("Старт приема монет"));
    guarded([&] {
        changer->checkState();
        changer->cashInStart(fast, excludedDenoms);
    });
}

void CpiBcrCashControl::cashInEnd() {}

SumDetailed CpiBcrCashControl::cashInRollback()
{
    return SumDetailed();
}

void CpiBcrCashControl::cashInStop()
{
    logging::info(logger, QStringLiteral("Остановка приема монет"));
    // The stop re-runs the device connection first: after a long acceptance the
    // device may have been reset or still be initialising.
    guarded([&] {
        changer->connect();
        changer->cashInStop();
    });
}

SumDetailed CpiBcrCashControl::cashOut(ECashControl::ChangeMode mode, long long amount)
{
    logging::info(logger, QStringLiteral("Выдача монет %1, режим %2")
                              .arg(cashcontrol::formatAmount(amount), ECashControl::modeName(mode)));
    refuseNegative(amount);
    return guarded([&] {
        changer->checkState();
        const SumDetailed plan = calcDenomSums(changer->getUnits(), amount, mode);
        if (plan.sum() != amount) {
            throwError(QStringLiteral("Невозможно выдать сумму"), true);
        }
        const SumDetailed paid = changer->cashOut(plan, mode);
        reportPaid(paid, amount);
        checkPaid(paid, amount);
        return paid;
    });
}

bool CpiBcrCashControl::cashOutCheck(ECashControl::ChangeMode mode, long long amount)
{
    logging::info(logger, QStringLiteral("Тестирование выдачи %1, режим %2")
                              .arg(cashcontrol::formatAmount(amount), ECashControl::modeName(mode)));
    if (amount < 0) {
        return false;
    }
    return guarded([&] {
        changer->checkState();
        return calcDenomSums(changer->getUnits(), amount, mode).sum() == amount;
    });
}

bool CpiBcrCashControl::isNeedToTakeMoney()
{
    return false;
}

QList<CashControlUnit> CpiBcrCashControl::getUnits()
{
    return guarded([&] { return changer->getUnits(); });
}

QSet<unsigned int> CpiBcrCashControl::getAcceptableDenoms()
{
    return guarded([&] { return changer->getAcceptableDenoms(); });
}

void CpiBcrCashControl::loan(const QString& unitName, ECashControl::UnitOperation operation, long long amount)
{
    logging::info(logger, QStringLiteral("Внесение купюр в модуль %1, '%2', сумма %3")
                              .arg(unitName, ECashControl::operationName(operation),
                                   cashcontrol::formatAmount(amount)));
    refuseNegative(amount);
    guarded([&] {
        const CashControlUnit unit = changer->getUnit(unitName);
        refuseOperation(unit, operation);
        refuseFractionalCoins(unit, operation, amount);
        changer->checkState();
        if (operation != ECashControl::ManualLoad) {
            return;
        }
        const unsigned char number = hopperNumber(unit);
        // Coins may have come in or gone out since discovery: the count written is the
        // device's own plus the coins loaded.
        const long long held = changer->getHopperCount(number);
        // The device keeps a hopper's count in 16 bits: a count past that would
        // wrap into a small one instead of being refused.
        if (amount / unit.denom > maxHopperCount - held) {
            throwError(QStringLiteral("Некорректная сумма"), true);
        }
        changer->setHopperCount(number, static_cast<unsigned short>(held + amount / unit.denom));
    });
}

SumDetailed CpiBcrCashControl::pickup(const QString& unitName, ECashControl::UnitOperation operation,
                                      long long amount)
{
    logging::info(logger, QStringLiteral("Выем монет из модуля %1, '%2', сумма %3")
                              .arg(unitName, ECashControl::operationName(operation),
                                   cashcontrol::formatAmount(amount)));
    refuseNegative(amount);
    return guarded([&] {
        SumDetailed result;
        const CashControlUnit unit = changer->getUnit(unitName);
        refuseOperation(unit, operation);
        if (operation == ECashControl::DispensePickupSum) {
            refuseFractionalCoins(unit, operation, amount);
            // The payout takes a 32-bit coin count; a larger one would be cut to
            // its low bits and pay some other number of coins.
            if (amount / unit.denom > maxPayoutCount) {
                throwError(QStringLiteral("Некорректная сумма"), true);
            }
        }
        changer->checkState();
        const unsigned char number = hopperNumber(unit);
        // Counts and sums are read from the device in the operation itself: coins
        // accepted or paid since discovery are in them.
        switch (operation) {
        case ECashControl::ManualPickupAll:
            if (unit.type == cashunits::cashboxType) {
                result.rest = changer->getCashboxSum();
                changer->setCashboxSum(0);
            } else {
                result.denoms[unit.denom] = changer->getHopperCount(number);
                changer->setHopperCount(number, 0);
            }
            break;
        case ECashControl::ManualPickupSum: {
            if (unit.denom == 0) {
                throwError(QStringLiteral("Некорректная сумма"), true);
            }
            const long long held = changer->getHopperCount(number);
            const long long taken = qMin(amount / unit.denom, held);
            changer->setHopperCount(number, static_cast<unsigned short>(held - taken));
            result.denoms[unit.denom] = taken;
            break;
        }
        case ECashControl::DispensePickupAll:
            // The purge runs until the hopper is empty, so nothing is left to count.
            result = changer->purge(number);
            try {
                changer->setHopperCount(number, 0);
            } catch (const CcTalk::Exception& e) {
                // The coins are out although the call fails.
                logging::warn(logger, QStringLiteral("Выдано ") + result.toString());
                throw CcTalk::Exception(e.message() + cashcontrol::paidSuffix(result.sum()), e.deviceName());
            }
            break;
        case ECashControl::DispensePickupSum:
            result = changer->cashOut(number, static_cast<unsigned int>(amount / unit.denom));
            if (result.sum() != amount) {
                logging::warn(logger, QStringLiteral("Выдано ") + result.toString());
            }
            checkPaid(result, amount);
            break;
        default:
            break;
        }
        return result;
    });
}

SumDetailed CpiBcrCashControl::getCounter(ECashControl::CounterType counter)
{
    logging::info(logger, QStringLiteral("Получение счетчика ") + ECashControl::counterName(counter));
    switch (counter) {
    case ECashControl::Accepted: {
        const SumDetailed result = guarded([&] { return changer->getAcceptedCounters(); });
        logging::info(logger, QStringLiteral("Счетчик внесений: ") + result.toString());
        return result;
    }
    case ECashControl::Dispensed: {
        const SumDetailed result = guarded([&] { return changer->getDispensedCounters(); });
        logging::info(logger, QStringLiteral("Счетчик выемов: ") + result.toString());
        return result;
    }
    default:
        logging::warn(logger, QStringLiteral("Тип счетчика не поддерживается"));
        return SumDetailed();
    }
}

void CpiBcrCashControl::enableAsyncCheck(bool enable)
{
    asyncEnabled = enable;
    if (!enable) {
        // The timer keeps running; its next expiry finds the flag off.
        logging::info(logger, QStringLiteral("Остановка асинхронной проверки состояния"));
        return;
    }
    logging::info(logger, QStringLiteral("Старт асинхронной проверки состояния"));
    if (timer->isActive()) {
        return;
    }
    timer->start();
    asyncCheckState();
}

void CpiBcrCashControl::asyncCheckState()
{
    if (!asyncEnabled) {
        return;
    }
    try {
        changer->checkError();
    } catch (const CcTalk::Exception& e) {
        // After a failure the check stays off until the host enables it again.
        timer->stop();
        emit error(name() + QStringLiteral(": ") + QString::fromUtf8(e.what()));
        return;
    }
    timer->start();
}

void CpiBcrCashControl::enableUnit(const QString&, bool)
{
    logging::warn(logger, QStringLiteral("Операция отключения модулей не поддерживается"));
}

void CpiBcrCashControl::park()
{
    logging::warn(logger, QStringLiteral("Операция подготовки к транспортировке не поддерживается"));
}

QString CpiBcrCashControl::diagFile()
{
    logging::warn(logger, QStringLiteral("Операция создания диагностического файла не поддерживается"));
    return QStringLiteral("операция не поддерживается");
}

CcUnitMaintenanceInfo CpiBcrCashControl::maintenanceInfo(const QString& unitName)
{
    logging::info(logger,
                  QStringLiteral("Получение информации о тех. обслуживании для модуля %1").arg(unitName));
    return guarded([&] { return changer->maintanenceInfo(unitName); });
}

QList<CcUnitMaintenanceInfo> CpiBcrCashControl::maintenanceInfo()
{
    QList<CcUnitMaintenanceInfo> records;
    const QList<CashControlUnit> units = getUnits();
    for (const CashControlUnit& unit : units) {
        if (unit.operations & ECashControl::Maintenance) {
            records.append(maintenanceInfo(unit.name));
        }
    }
    return records;
}

void CpiBcrCashControl::maintenanceDone(const QString& unitName)
{
    logging::info(logger, QStringLiteral("Сброс состояния тех. обслуживания для модуля %1").arg(unitName));
    guarded([&] { changer->maintanenceDone(unitName); });
}

void CpiBcrCashControl::refuseNegative(long long amount) const
{
    if (amount < 0) {
        throwError(QStringLiteral("Некорректная сумма"), true);
    }
}

void CpiBcrCashControl::refuseOperation(const CashControlUnit& unit,
                                        ECashControl::UnitOperation operation) const
{
    const auto bit = static_cast<unsigned long long>(operation);
    const bool single = bit != 0 && (bit & (bit - 1)) == 0;
    if (!single || (static_cast<unsigned long long>(unit.operations) & bit) == 0) {
        throwError(QStringLiteral("Операция не поддерживается"), true);
    }
}

void CpiBcrCashControl::refuseFractionalCoins(const CashControlUnit& unit,
                                              ECashControl::UnitOperation operation, long long amount) const
{
    if (cashunits::refusesPartCoins(unit, operation, amount)) {
        throwError(cashunits::badAmountText(), true);
    }
}

void CpiBcrCashControl::reportPaid(const SumDetailed& paid, long long amount) const
{
    // A payout that differs from the amount is a failure the till is reconciled by.
    if (paid.sum() == amount) {
        logging::info(logger, QStringLiteral("Выдано ") + paid.toString());
    } else {
        logging::warn(logger, QStringLiteral("Выдано ") + paid.toString());
    }
}

void CpiBcrCashControl::checkPaid(const SumDetailed& paid, long long amount) const
{
    if (paid.sum() > amount) {
        throwError(QStringLiteral("Выдано больше монет") + cashcontrol::paidSuffix(paid.sum()), true);
    }
    if (paid.sum() < amount) {
        throwError(QStringLiteral("Недостаточно монет для выдачи") + cashcontrol::paidSuffix(paid.sum()),
                   true);
    }
}

} // namespace hw
