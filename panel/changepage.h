// The change page: an amount and a mode, checked or paid, and what was paid by denomination.
#pragma once

#include "cashcontrol/sumdetailed.h"

#include <QString>
#include <QWidget>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace panel {

class ChangePage : public QWidget
{
    Q_OBJECT
public:
    explicit ChangePage(QWidget* parent = nullptr);

    void showChecked(qint64 amount, int mode, bool possible);
    void showPaid(qint64 amount, int mode, const SumDetailed& paid);
    void setControlsEnabled(bool enabled);

signals:
    void checkRequested(int mode, qint64 amount);
    void payRequested(int mode, qint64 amount);
    void message(const QString& text, bool failure);

private:
    void check();
    void pay();
    // False after showing why the amount is refused.
    bool parseAmount(long long* minor);

    QLineEdit* changeAmount;
    QComboBox* changeMode;
    QPushButton* changeCheckButton;
    QPushButton* changePayButton;
    QLabel* changeResultLabel;
    QTableWidget* changeTable;
};

} // namespace panel
