// The acceptance page: coins taken in with refused denominations, as they arrive, with the total.
#pragma once

#include "cashcontrol/sumdetailed.h"

#include <QList>
#include <QString>
#include <QWidget>

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;

namespace panel {

class AcceptPage : public QWidget
{
    Q_OBJECT
public:
    explicit AcceptPage(QWidget* parent = nullptr);

    // Keeps the refused denominations that are still offered.
    void setDenominations(const QList<uint>& denominations);
    void showAcceptance(bool running);
    void showCoins(const SumDetailed& coins);
    void setControlsEnabled(bool ready, bool accepting);

signals:
    void startRequested(bool fast, const QList<uint>& refused);
    void stopRequested();
    void message(const QString& text, bool failure);

private:
    void start();
    QList<uint> refused() const;

    long long acceptedTotal = 0;

    QPushButton* acceptStartButton;
    QPushButton* acceptStopButton;
    QCheckBox* fastBox;
    QListWidget* excludeList;
    QListWidget* coinsList;
    QLabel* acceptTotalLabel;
};

} // namespace panel
