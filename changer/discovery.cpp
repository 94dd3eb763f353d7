// Discovery: the start on the bus, then the device's coin positions, hoppers and cashbox.
#include "changer/changer.h"

#include "cashcontrol/units.h"
#include "cctalk/commands.h"
#include "changer/changerdetail.h"
#include "host/qtcompat.h"

#include <QStringList>

namespace CcTalk {

using namespace changer;

void Changer::init()
{
    closeStalledSession();
    resetIfNeeded();
    commonInit();
    setTime();
    checkState();
    loadCashUnits();
}

void Changer::connect()
{
    Device::connect();
    waitNotState(ReqActivityRegResp::Initialisation, initialisationPolls,
                 QStringLiteral("завершения инициализации устройства"), true);
}

QList<CashControlUnit> Changer::getUnits()
{
    waitNotState(ReqActivityRegResp::Initialisation, initialisationPolls,
                 QStringLiteral("завершения инициализации устройства"), false);
    loadCashUnits();
    return units;
}

CashControlUnit Changer::getUnit(const QString& unitName)
{
    const QList<CashControlUnit> known = units;
    for (const CashControlUnit& unit : known) {
        if (unit.name == unitName)
            return unit;
    }
    throwError<Exception>(QStringLiteral("Модуль не найден"));
}

QSet<unsigned int> Changer::getAcceptableDenoms()
{
    return acceptableDenoms;
}

QString Changer::describeUnit(unsigned char unit)
{
    const Response serialNumber = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::SerialNumber));
    const Response firmware = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Firmware));
    const Response model = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Model));
    // The device's texts end at the first zero byte, and so does the whole line.
    QByteArray line = QStringLiteral(" модель: ").toUtf8();
    line += QByteArray(model);
    line += QStringLiteral(", прошивка: ").toUtf8();
    line += QByteArray(firmware);
    line += QStringLiteral(", серия: ").toUtf8();
    return QString::fromUtf8(line.constData()) + QString::number(serialNumber.getUint(0, 3));
}

void Changer::loadCashUnits()
{
    logInfo(QStringLiteral("Получение информации о модулях"));
    units.clear();
    acceptableDenoms = QSet<unsigned int>();

    const ReqErrorStatusResp status(exec(ReqErrorStatus()));
    const ReqVarSetResp vars(exec(ReqVarSet()));
    const int positions = vars.getVar(0);
    const int hoppers = vars.getVar(1);

    logInfo(QStringLiteral("Приемник монет"));
    logInfo(describeUnit(ReqUnitInfo::CoinAcceptor));
    QStringList coins;
    for (int p = 1; p <= positions; ++p) {
        const ReqCoinIdResp coin(exec(ReqCoinId(static_cast<unsigned char>(p))));
        const CoinId id = coin.getDenom();
        coinDenoms[static_cast<unsigned char>(p)] = id.getDenom();
        coins << QStringLiteral("%1 - %2").arg(QString::number(p), id.getName());
    }
    logInfo(QStringLiteral(" валюты: ") + coins.join(QStringLiteral(", ")));

    for (int h = 1; h <= hoppers; ++h) {
        const auto unit = static_cast<unsigned char>(h + ReqUnitInfo::CoinAcceptor);
        const Response enabled = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Enabled));
        if (enabled.getByte(0) == 0) {
            logInfo(QStringLiteral("Хоппер ") + QString::number(h) + QStringLiteral(" отключен"));
            continue;
        }
        logInfo(QStringLiteral("Хоппер ") + QString::number(h));
        logInfo(describeUnit(unit));
        const ReqHopperBalanceResp balance(exec(ReqHopperBalance(h)));
        const Response capacity = exec(ReqUnitInfo(ReqUnitInfo::Unit(unit), ReqUnitInfo::Capacity));
        const CoinId id = balance.getDenom();
        const unsigned int count = balance.getCount();
        const unsigned int coinsHeld = capacity.getUint(0, 2);
        logInfo(QStringLiteral(" валюта: ") + id.getName() + QStringLiteral(", кол-во: ") +
                QString::number(count) + QStringLiteral(", емкость: ") + QString::number(coinsHeld));

        CashControlUnit hopper;
        hopper.name = QStringLiteral("hopper") + QString::number(h);
        hopper.type = cashunits::hopperType;
        hopper.operations = cashunits::hopperOperations;
        hopper.flag = 1;
        hopper.denom = id.getDenom();
        hopper.count = count;
        hopper.sum = 0;
        hopper.capacity = static_cast<int>(coinsHeld);
        hopper.limit3 = 50;
        hopper.state = status.isDeviceHasError(ReqErrorStatusResp::Hopper, h) ? unitFaultState : 0;
        units.append(hopper);
        acceptableDenoms.insert(hopper.denom);
    }

    // Acceptable means recycled by a hopper and recognised by the acceptor.
    acceptableDenoms.intersect(qtcompat::toSet<unsigned int>(coinDenoms));

    logInfo(QStringLiteral("Кэшбокс"));
    const ReqCashboxValueResp cashbox(exec(ReqCashboxValue()));
    const unsigned int cashboxSum = cashbox.getSum();
    logInfo(QStringLiteral(" сумма: ") + amountText(cashboxSum));

    CashControlUnit box;
    box.name = QStringLiteral("cashbox");
    box.type = cashunits::cashboxType;
    box.operations = cashunits::cashboxOperations;
    box.sum = cashboxSum;
    box.state = status.isDeviceHasError(ReqErrorStatusResp::Cashbox, 0) ? unitFaultState : 0;
    units.append(box);
}

} // namespace CcTalk
