// The widths the host and the device agree on, the same on 32-bit and 64-bit builds: on
// i386 `long` is 32 bits, so every field that must be wider says so with its type.
#include "cashcontrol/cashcontrolunit.h"
#include "cashcontrol/sumdetailed.h"
#include "cctalk/auditcommands.h"
#include "changer/coincounts.h"
#include "support/frames.h"

#include <QtTest>

#include <climits>
#include <limits>
#include <type_traits>

namespace {

template <class T> constexpr bool isSigned64 = std::is_integral_v<T>&& std::is_signed_v<T> && sizeof(T) == 8;
template <class T>
constexpr bool isUnsigned32 = std::is_integral_v<T>&& std::is_unsigned_v<T> && sizeof(T) == 4;

using Denoms = QMap<unsigned int, long long>;

static_assert(isSigned64<decltype(SumDetailed::rest)>);
static_assert(isSigned64<decltype(SumDetailed::extra)>);
static_assert(isSigned64<decltype(SumDetailed().sum())>);
static_assert(std::is_same_v<decltype(SumDetailed::denoms), Denoms>);
static_assert(isUnsigned32<Denoms::key_type>);
static_assert(isSigned64<Denoms::mapped_type>);
static_assert(isUnsigned32<decltype(CashControlUnit::denom)>);
static_assert(isSigned64<decltype(CashControlUnit::count)>);
static_assert(isSigned64<decltype(CashControlUnit::sum)>);
static_assert(std::is_same_v<decltype(CashControlUnit::denoms), Denoms>);
static_assert(isUnsigned32<CcTalk::CoinCounts::Counters::mapped_type>);
static_assert(isUnsigned32<decltype(CcTalk::ReqAuditCounterResp().value())>);
static_assert(isSigned64<decltype(QDateTime().toSecsSinceEpoch())>);

template <class R> R answer(const QByteArray& data)
{
    CcTalk::Response r;
    r.addRawData(testsupport::reply(data));
    return R(r);
}

QDateTime utc(int year, int month, int day, int hour, int minute, int second)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::UTC);
}

} // namespace

class TestWidths : public QObject
{
    Q_OBJECT

private slots:
    void pointerWidthIsTheBuilds();
    void amountsBeyond32Bits();
    void extremeAmountsFormatted();
    void denominationsUseAll32Bits();
    void coinCountersWrapAt16Bits();
    void auditCountersUseAll32Bits();
    void clockSecondsPast2038();
};

void TestWidths::pointerWidthIsTheBuilds()
{
    // The same suite runs on both: this says which one ran.
    qInfo("%d-bit build, long is %d bits", int(sizeof(void*) * 8), int(sizeof(long) * 8));
#if defined(__i386__)
    QCOMPARE(sizeof(void*), size_t(4));
    QCOMPARE(sizeof(long), size_t(4));
#elif defined(__x86_64__)
    QCOMPARE(sizeof(void*), size_t(8));
    QCOMPARE(sizeof(long), size_t(8));
#endif
    QCOMPARE(sizeof(long long), size_t(8));
}

void TestWidths::amountsBeyond32Bits()
{
    SumDetailed s;
    s.denoms.insert(1000u, 3000000LL); // 30 000 000.00 in coins of 10.00
    s.rest = 5;
    QCOMPARE(s.sum(), 3000000005LL);
    QVERIFY(s.sum() > qint64(std::numeric_limits<qint32>::max()));

    SumDetailed big;
    big.denoms.insert(200u, 46116860184273879LL);
    big.rest = 7;
    QCOMPARE(big.sum(), LLONG_MAX);
}

void TestWidths::extremeAmountsFormatted()
{
    QCOMPARE(cashcontrol::formatAmount(LLONG_MAX), QStringLiteral("92233720368547758.07"));
    QCOMPARE(cashcontrol::formatAmount(LLONG_MIN), QStringLiteral("-92233720368547758.08"));
    QCOMPARE(cashcontrol::formatAmount(4294967296LL), QStringLiteral("42949672.96"));
}

void TestWidths::denominationsUseAll32Bits()
{
    SumDetailed s;
    s.denoms.insert(0xFFFFFFFFu, 2);
    s.denoms.insert(0x80000000u, 1);
    // Keys stay unsigned: the largest sorts last, and the sum is taken in 64 bits.
    QCOMPARE(s.denoms.lastKey(), 0xFFFFFFFFu);
    QCOMPARE(s.denoms.firstKey(), 0x80000000u);
    QCOMPARE(s.sum(), 2LL * 4294967295LL + 2147483648LL);

    CashControlUnit u;
    u.denom = 0xFFFFFFFFu;
    u.count = 3;
    QCOMPARE(qint64(u.denom) * u.count, 12884901885LL);
}

void TestWidths::coinCountersWrapAt16Bits()
{
    CcTalk::CoinCounts counts;
    QVERIFY(counts.update({{1, 65530u}}, 0).added.isEmpty());
    const CcTalk::CoinCounts::Step step = counts.update({{1, 4u}}, 10000);
    QCOMPARE(step.added.value(1), 10u);
    QVERIFY(step.rebased.isEmpty());
    QCOMPARE(counts.values().value(1), 4u);
}

void TestWidths::auditCountersUseAll32Bits()
{
    QCOMPARE(answer<CcTalk::ReqAuditCounterResp>(testsupport::hex("ffffffff")).value(), 4294967295u);
    QCOMPARE(answer<CcTalk::ReqAuditCounterResp>(testsupport::hex("00000080")).value(), 2147483648u);
}

void TestWidths::clockSecondsPast2038()
{
    // 2^31 seconds: the first second a signed 32-bit time_t cannot hold.
    const QDateTime after2038 = utc(2038, 1, 19, 3, 14, 8);
    QCOMPARE(after2038.toSecsSinceEpoch(), qint64(0x80000000LL));
    const CcTalk::ModRealTimeClock set(after2038);
    QCOMPARE(set.getData(), testsupport::hex("00000080"));
    QCOMPARE(answer<CcTalk::ReqRealTimeClockResp>(testsupport::hex("00000080")).getTime(), after2038);

    // The last second the device's unsigned 32-bit clock holds.
    const QDateTime last = utc(2106, 2, 7, 6, 28, 15);
    QCOMPARE(CcTalk::ModRealTimeClock(last).getData(), testsupport::hex("ffffffff"));
    QCOMPARE(answer<CcTalk::ReqRealTimeClockResp>(testsupport::hex("ffffffff")).getTime(), last);
}

QTEST_APPLESS_MAIN(TestWidths)
#include "tst_widths.moc"
