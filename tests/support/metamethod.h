#pragma once

#include <QMetaMethod>
#include <QMetaObject>
#include <QString>
#include <QStringList>

namespace testsupport {

// A method as its class's meta-object lists it: "<access> <kind> <signature> [<parameter names>]".
inline QString methodText(const QMetaMethod& method)
{
    static const char* const access[] = {"private", "protected", "public"};
    static const char* const kind[] = {"method", "signal", "slot", "constructor"};
    QStringList names;
    for (const QByteArray& name : method.parameterNames())
        names << QString::fromLatin1(name);
    return QStringLiteral("%1 %2 %3 [%4]")
        .arg(QLatin1String(access[method.access()]), QLatin1String(kind[method.methodType()]),
             QString::fromLatin1(method.methodSignature()), names.join(QStringLiteral(", ")));
}

// The methods a class declares itself, beyond those of its base classes.
inline QStringList ownMethods(const QMetaObject& meta)
{
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << methodText(meta.method(i));
    return methods;
}

} // namespace testsupport
