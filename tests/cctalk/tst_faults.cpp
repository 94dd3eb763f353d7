#include "cctalk/faults.h"
#include "support/columns.h"
#include "support/frames.h"

#include <QtTest>

using testsupport::hex;
using testsupport::reply;

namespace {

CcTalk::Response answer(const QByteArray& data)
{
    CcTalk::Response r;
    r.addRawData(reply(data));
    return r;
}

CcTalk::Response answer(int d0, int d1)
{
    QByteArray data;
    data.append(char(d0));
    data.append(char(d1));
    return answer(data);
}

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
private slots:
    void requests()
    {
        QCOMPARE(int(CcTalk::ReqErrorStatus().getHeader()), 122);
        QVERIFY(CcTalk::ReqErrorStatus().getData().isEmpty());
        QCOMPARE(int(CcTalk::Selfcheck().getHeader()), 232);
        QVERIFY(CcTalk::Selfcheck().getData().isEmpty());
    }

    // Module 3, every code: message, fatal, and which unit kinds it marks faulty.
    void errorStatus_data()
    {
        testsupport::columns<int, QString, bool, bool, bool, bool>("code", "message", "fatal", "hopper",
                                                                   "acceptor", "cashbox");
        QTest::newRow("1") << 1 << QStringLiteral("Хоппер 3 пустой") << false << false << false << false;
        QTest::newRow("2") << 2 << QStringLiteral("Хоппер 3, заклинивание") << false << true << false
                           << false;
        QTest::newRow("3") << 3 << QStringLiteral("Хоппер 3, мошенничество") << false << false << false
                           << false;
        QTest::newRow("4") << 4 << QStringLiteral("Хоппер 3 неисправен") << false << true << false << false;
        QTest::newRow("101") << 101 << QStringLiteral("Приемник монет, заклинивание") << true << false << true
                             << false;
        QTest::newRow("102") << 102 << QStringLiteral("Приемник монет, мошенничество") << false << false
                             << false << false;
        QTest::newRow("103") << 103 << QStringLiteral("Приемник монет, многократная оптическая неисправность")
                             << false << false << true << false;
        QTest::newRow("104") << 104 << QStringLiteral("Приемник монет неисправен") << false << false << true
                             << false;
        QTest::newRow("251") << 251 << QStringLiteral("Кэшбокс заполнен") << false << false << false << true;
        QTest::newRow("252") << 252 << QStringLiteral("Кэшбокс отсутствует") << true << false << false
                             << true;
        QTest::newRow("5") << 5 << QStringLiteral("Неизвестная ошибка") << false << false << false << false;
        QTest::newRow("100") << 100 << QStringLiteral("Неизвестная ошибка") << false << false << false
                             << false;
        QTest::newRow("105") << 105 << QStringLiteral("Неизвестная ошибка") << false << false << false
                             << false;
        QTest::newRow("250") << 250 << QStringLiteral("Неизвестная ошибка") << false << false << false
                             << false;
        QTest::newRow("253") << 253 << QStringLiteral("Неизвестная ошибка") << false << false << false
                             << false;
        QTest::newRow("255") << 255 << QStringLiteral("Неизвестная ошибка") << false << false << false
                             << false;
    }

    void errorStatus()
    {
        QFETCH(int, code);
        QFETCH(QString, message);
        QFETCH(bool, fatal);
        QFETCH(bool, hopper);
        QFETCH(bool, acceptor);
        QFETCH(bool, cashbox);
        const CcTalk::ReqErrorStatusResp s = answer(3, code);
        QCOMPARE(s.getError(), message);
        QCOMPARE(s.isFatal(), fatal);
        QVERIFY(s.hasError());
        QVERIFY(!s.isNeedSelfTest());
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 3), hopper);
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 4));
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::CoinAcceptor, 3), acceptor);
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::CoinAcceptor, 0), acceptor);
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Cashbox, 3), cashbox);
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Cashbox, 9), cashbox);
        // Any other kind is a hopper.
        QCOMPARE(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::DeviceType(7), 3), hopper);
    }

    void hopperNumberInMessage_data()
    {
        testsupport::columns<int, QString>("module", "message");
        for (int module : {1, 12, 255, 0})
            QTest::newRow(QByteArray::number(module).constData())
                << module << QStringLiteral("Хоппер %1 неисправен").arg(module);
    }

    void hopperNumberInMessage()
    {
        QFETCH(int, module);
        QFETCH(QString, message);
        QCOMPARE(CcTalk::ReqErrorStatusResp(answer(module, 4)).getError(), message);
    }

    void errorStatusModuleZero()
    {
        const CcTalk::ReqErrorStatusResp s = answer(hex("0065"));
        QVERIFY(!s.hasError());
        QVERIFY(s.isFatal());
        QCOMPARE(s.getError(), QStringLiteral("Приемник монет, заклинивание"));
        QVERIFY(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::CoinAcceptor, 0));
        QVERIFY(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::CoinAcceptor, 5));
        QVERIFY(!s.isNeedSelfTest());
    }

    void errorStatusHopperJam()
    {
        const CcTalk::ReqErrorStatusResp s = answer(hex("0302"));
        QCOMPARE(s.getError(), QStringLiteral("Хоппер 3, заклинивание"));
        QVERIFY(s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 3));
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 2));
        QVERIFY(s.hasError());
        QVERIFY(!s.isFatal());
    }

    void errorStatusHopperEmpty()
    {
        const CcTalk::ReqErrorStatusResp s = answer(hex("0301"));
        QCOMPARE(s.getError(), QStringLiteral("Хоппер 3 пустой"));
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 3));
        QVERIFY(s.hasError());
    }

    void errorStatusNeedsSelfTest()
    {
        const CcTalk::ReqErrorStatusResp s = answer(hex("ffff"));
        QVERIFY(s.isNeedSelfTest());
        QVERIFY(s.hasError());
        QVERIFY(!s.isFatal());
        QCOMPARE(s.getError(), QStringLiteral("Неизвестная ошибка"));
        QVERIFY(!CcTalk::ReqErrorStatusResp(answer(hex("ff01"))).isNeedSelfTest());
        QVERIFY(!CcTalk::ReqErrorStatusResp(answer(hex("01ff"))).isNeedSelfTest());
    }

    void errorStatusNoError_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("00 00") << hex("0000");
        QTest::newRow("module without code") << hex("0500");
        QTest::newRow("empty answer") << QByteArray();
        QTest::newRow("one byte") << hex("05");
    }

    void errorStatusNoError()
    {
        QFETCH(QByteArray, data);
        const CcTalk::ReqErrorStatusResp s = answer(data);
        QVERIFY(!s.hasError());
        QVERIFY(!s.isFatal());
        QVERIFY(!s.isNeedSelfTest());
        QCOMPARE(s.getError(), QStringLiteral("Неизвестная ошибка"));
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Hopper, 0));
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::CoinAcceptor, 0));
        QVERIFY(!s.isDeviceHasError(CcTalk::ReqErrorStatusResp::Cashbox, 0));
    }

    void selfcheck_data()
    {
        testsupport::columns<int, int, QString>("code", "extra", "message");
        QTest::newRow("1") << 1 << 0 << QStringLiteral("Ошибка EEPROM приемника монет");
        QTest::newRow("1/9") << 1 << 9 << QStringLiteral("Ошибка EEPROM приемника монет");
        QTest::newRow("2/6") << 2 << 6
                             << QStringLiteral("Ошибка датчика монет в устройстве поштучной подачи");
        QTest::newRow("2/8") << 2 << 8
                             << QStringLiteral("Ошибка датчика монет в устройстве поштучной подачи");
        QTest::newRow("2/7") << 2 << 7 << QStringLiteral("Ошибка датчика монет в устройстве возврата");
        QTest::newRow("2/9") << 2 << 9 << QStringLiteral("Ошибка датчика монет в устройстве возврата");
        QTest::newRow("2/0") << 2 << 0 << QStringLiteral("Ошибка магнитного датчика монет");
        QTest::newRow("2/5") << 2 << 5 << QStringLiteral("Ошибка магнитного датчика монет");
        QTest::newRow("2/10") << 2 << 10 << QStringLiteral("Ошибка магнитного датчика монет");
        QTest::newRow("3") << 3 << 1 << QStringLiteral("Ошибка датчика валидации");
        QTest::newRow("8") << 8 << 0 << QStringLiteral("Ошибка на выходе сортировщика, блокировка");
        QTest::newRow("9") << 9 << 0 << QStringLiteral("Ошибка NVRAM");
        QTest::newRow("19") << 19 << 0 << QStringLiteral("Ошибка механизма возврата монет");
        QTest::newRow("22") << 22 << 0 << QStringLiteral("Ошибка датчика температуры");
        QTest::newRow("23/1") << 23 << 1
                              << QStringLiteral(
                                     "Неисправен мотор в устройстве поштучной подачи, заклинивание");
        QTest::newRow("23/2") << 23 << 2 << QStringLiteral("Неисправен мотор подъемника, заклинивание");
        QTest::newRow("23/3") << 23 << 3 << QStringLiteral("Неисправен мотор возврата");
        QTest::newRow("23/4") << 23 << 4 << QStringLiteral("Неисправен мотор в устройстве поштучной подачи");
        QTest::newRow("23/5") << 23 << 5 << QStringLiteral("Неисправен мотор подъемника");
        QTest::newRow("23/6") << 23 << 6
                              << QStringLiteral(
                                     "Неисправен мотор в устройстве поштучной подачи, блокировка датчика");
        QTest::newRow("23/7") << 23 << 7 << QStringLiteral("Неисправен мотор подъемника, блокировка датчика");
        QTest::newRow("23/16") << 23 << 16
                               << QStringLiteral("Неисправен ремень в устройстве поштучной подачи");
        QTest::newRow("23/17") << 23 << 17 << QStringLiteral("Неисправен ремень подъемника");
        QTest::newRow("23/0") << 23 << 0 << QStringLiteral("Неисправен мотор выдачи монет");
        QTest::newRow("23/8") << 23 << 8 << QStringLiteral("Неисправен мотор выдачи монет");
        QTest::newRow("23/18") << 23 << 18 << QStringLiteral("Неисправен мотор выдачи монет");
        QTest::newRow("26/12") << 26 << 12 << QStringLiteral("Ошибка датчика выдачи хоппера 2");
        QTest::newRow("26/3") << 26 << 3 << QStringLiteral("Ошибка датчика выдачи хоппера 3");
        QTest::newRow("26/0") << 26 << 0 << QStringLiteral("Ошибка датчика выдачи хоппера 0");
        QTest::newRow("26/255") << 26 << 255 << QStringLiteral("Ошибка датчика выдачи хоппера 5");
        QTest::newRow("27/12") << 27 << 12 << QStringLiteral("Ошибка датчика уровня хоппера 12");
        QTest::newRow("27/3") << 27 << 3 << QStringLiteral("Ошибка датчика уровня хоппера 3");
        QTest::newRow("27/255") << 27 << 255 << QStringLiteral("Ошибка датчика уровня хоппера 255");
        QTest::newRow("33") << 33 << 0 << QStringLiteral("Ошибка входного лотка монет");
        QTest::newRow("35/2") << 35 << 2 << QStringLiteral("Приемник монет неисправен");
        QTest::newRow("35/1") << 35 << 1 << QStringLiteral("Приемник монет, заклинивание");
        QTest::newRow("35/0") << 35 << 0 << QStringLiteral("Приемник монет, заклинивание");
        QTest::newRow("40") << 40 << 0 << QStringLiteral("Ошибка RAM");
        QTest::newRow("48/1") << 48 << 1 << QStringLiteral("Отсутствует кэшбокс");
        QTest::newRow("48/2") << 48 << 2 << QStringLiteral("Отсутствует панель с хопперами");
        QTest::newRow("48/3") << 48 << 3 << QStringLiteral("Отсутствуют хопперы");
        QTest::newRow("48/4") << 48 << 4 << QStringLiteral("ID хоппера не соответствует");
        QTest::newRow("48/5") << 48 << 5 << QStringLiteral("Отсутствует приемник монет");
        QTest::newRow("48/0") << 48 << 0 << QStringLiteral("Модуль не отвечает");
        QTest::newRow("48/6") << 48 << 6 << QStringLiteral("Модуль не отвечает");
        QTest::newRow("49/2") << 49 << 2 << QStringLiteral("Ошибка датчика заполнения кэшбокса");
        QTest::newRow("49/3") << 49 << 3 << QStringLiteral("Ошибка датчика приема монет");
        QTest::newRow("49/4") << 49 << 4 << QStringLiteral("Ошибка датчика заполнения чаши для выдачи");
        QTest::newRow("49/1") << 49 << 1 << QStringLiteral("Ошибка оптического датчика");
        QTest::newRow("49/5") << 49 << 5 << QStringLiteral("Ошибка оптического датчика");
        QTest::newRow("50") << 50 << 0 << QStringLiteral("Необходима замена батареи, разряжена");
        QTest::newRow("51/1") << 51 << 1 << QStringLiteral("Открыта дверь в устройстве поштучной подачи");
        QTest::newRow("51/2") << 51 << 2 << QStringLiteral("Открыта дверь подьемника");
        QTest::newRow("51/0") << 51 << 0 << QStringLiteral("Открыта дверь");
        QTest::newRow("51/3") << 51 << 3 << QStringLiteral("Открыта дверь");
        QTest::newRow("53") << 53 << 0 << QStringLiteral("Ошибка часов реального времени");
        QTest::newRow("54") << 54 << 0 << QStringLiteral("Ошибка прошивки");
        QTest::newRow("55") << 55 << 0 << QStringLiteral("Ошибка инициализации");
        QTest::newRow("0") << 0 << 0 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("4") << 4 << 0 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("24") << 24 << 1 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("34") << 34 << 0 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("52") << 52 << 0 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("56") << 56 << 0 << QStringLiteral("Неизвестная ошибка");
        QTest::newRow("255") << 255 << 255 << QStringLiteral("Неизвестная ошибка");
    }

    void selfcheck()
    {
        QFETCH(int, code);
        QFETCH(int, extra);
        QFETCH(QString, message);
        const CcTalk::SelfcheckResp s = answer(code, extra);
        QCOMPARE(s.getError(), message);
        QCOMPARE(s.hasError(), code != 0);
        QCOMPARE(s.isFatal(), code == 51);
        QCOMPARE(s.isDelayedError(), code == 35);
    }

    void selfcheckHopperSensors()
    {
        // 26 shows only the last digit of the sub-code, 27 the whole number; both
        // texts end with a blank before it.
        QCOMPARE(CcTalk::SelfcheckResp(answer(hex("1a0c"))).getError(),
                 QStringLiteral("Ошибка датчика выдачи хоппера ") + QStringLiteral("2"));
        QCOMPARE(CcTalk::SelfcheckResp(answer(hex("1b0c"))).getError(),
                 QStringLiteral("Ошибка датчика уровня хоппера ") + QStringLiteral("12"));
    }

    void selfcheckDoorOpen()
    {
        const CcTalk::SelfcheckResp s = answer(hex("3300"));
        QCOMPARE(s.getError(), QStringLiteral("Открыта дверь"));
        QVERIFY(s.isFatal());
        QVERIFY(s.hasError());
        QVERIFY(!s.isDelayedError());
    }

    void selfcheckAcceptorFault()
    {
        const CcTalk::SelfcheckResp s = answer(hex("2302"));
        QCOMPARE(s.getError(), QStringLiteral("Приемник монет неисправен"));
        QVERIFY(s.isDelayedError());
        QVERIFY(!s.isFatal());
    }

    void selfcheckNoFault_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("00 00") << hex("0000");
        QTest::newRow("00 07") << hex("0007");
        QTest::newRow("00 ff") << hex("00ff");
        QTest::newRow("empty answer") << QByteArray();
    }

    void selfcheckNoFault()
    {
        QFETCH(QByteArray, data);
        const CcTalk::SelfcheckResp s = answer(data);
        QVERIFY(!s.hasError());
        QVERIFY(!s.isFatal());
        QVERIFY(!s.isDelayedError());
        QCOMPARE(s.getError(), QStringLiteral("Неизвестная ошибка"));
    }

    void selfcheckUnknownAbove55()
    {
        const CcTalk::SelfcheckResp s = answer(hex("3800"));
        QCOMPARE(s.getError(), QStringLiteral("Неизвестная ошибка"));
        QVERIFY(s.hasError());
    }

    void messagesAreUtf8()
    {
        // Byte for byte: "подьемника" with the soft sign in the door text.
        QCOMPARE(
            CcTalk::SelfcheckResp(answer(hex("3302"))).getError().toUtf8(),
            QByteArray("\xd0\x9e\xd1\x82\xd0\xba\xd1\x80\xd1\x8b\xd1\x82\xd0\xb0 "
                       "\xd0\xb4\xd0\xb2\xd0\xb5\xd1\x80\xd1\x8c "
                       "\xd0\xbf\xd0\xbe\xd0\xb4\xd1\x8c\xd0\xb5\xd0\xbc\xd0\xbd\xd0\xb8\xd0\xba\xd0\xb0"));
    }
};

QTEST_APPLESS_MAIN(TestFaults)
#include "tst_faults.moc"
