#include "timer.h"

Timer::Timer(QObject* parent) : QObject(parent)
{
    QObject::connect(&timer, SIGNAL(timeout()), this, SIGNAL(timeout()));
}

void Timer::setInterval(int msecs)
{
    timer.setInterval(msecs);
}

int Timer::interval() const
{
    return timer.interval();
}

void Timer::setSingleShot(bool singleShot)
{
    timer.setSingleShot(singleShot);
}

bool Timer::isSingleShot() const
{
    return timer.isSingleShot();
}

bool Timer::isActive() const
{
    return timer.isActive();
}

void Timer::start()
{
    timer.start();
}

void Timer::stop()
{
    timer.stop();
}
