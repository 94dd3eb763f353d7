// The lines under the connection row: the device, the fault banner, progress and the last message.
#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QProgressBar;

namespace panel {

class StatusArea : public QWidget
{
    Q_OBJECT
public:
    explicit StatusArea(QWidget* parent = nullptr);

    void showDevice(const QString& text);
    void showFault(const QString& message);
    void clearFault();
    void showBusy(const QString& what);
    void showIdle();
    void showMessage(const QString& text, bool failure);

private:
    QLabel* deviceLabel;
    QLabel* banner;
    QProgressBar* busyBar;
    QLabel* busyLabel;
    QLabel* messageLabel;
};

} // namespace panel
