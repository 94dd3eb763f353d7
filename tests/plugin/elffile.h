#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace plugintest {

// Just enough of an ELF reader to look at a built library's sections and
// dynamic symbols from the file itself, for 32- and 64-bit little-endian files.
class ElfFile
{
public:
    struct Section
    {
        QByteArray name;
        quint32 type = 0;
        quint64 flags = 0;
        quint64 offset = 0;
        quint64 size = 0;
        quint32 link = 0;
        quint64 entrySize = 0;
    };

    struct Symbol
    {
        QByteArray name;
        int binding = 0; // 0 local, 1 global, 2 weak
        int type = 0;    // 1 object, 2 function
        quint16 section = 0;
    };

    static constexpr quint32 progbits = 1;
    static constexpr quint32 dynsym = 11;
    static constexpr quint64 writeFlag = 0x1;
    static constexpr quint64 allocFlag = 0x2;
    static constexpr quint64 execFlag = 0x4;
    static constexpr quint16 machineI386 = 3;
    static constexpr quint16 machineX86_64 = 62;

    // False, with the reason in error(), when the bytes are not an ELF file this
    // reader understands.
    bool parse(const QByteArray& file);
    QString error() const { return reason; }

    // ELFCLASS64 as opposed to ELFCLASS32, and e_machine.
    bool is64Bit() const { return wide; }
    quint16 machine() const { return machineCode; }

    const QList<Section>& sections() const { return all; }
    const Section* section(const QByteArray& name) const;
    QByteArray contents(const Section& s) const;
    QList<Symbol> dynamicSymbols() const;

private:
    quint64 word(quint64 at, int size) const;
    bool fail(const QString& why);

    QByteArray data;
    bool wide = false;
    quint16 machineCode = 0;
    QList<Section> all;
    QString reason;
};

} // namespace plugintest
