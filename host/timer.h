#pragma once

#include <QObject>
#include <QTimer>

// The host's timer: delivers timeout() on the thread of its event loop.
class Timer : public QObject
{
    Q_OBJECT
public:
    explicit Timer(QObject* parent = nullptr);

    void setInterval(int msecs);
    int interval() const;
    void setSingleShot(bool singleShot);
    bool isSingleShot() const;
    bool isActive() const;

public slots:
    void start();
    void stop();

signals:
    void timeout();

private:
    QTimer timer;
};
