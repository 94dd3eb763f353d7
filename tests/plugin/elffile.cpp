#include "elffile.h"

namespace plugintest {

quint64 ElfFile::word(quint64 at, int size) const
{
    quint64 value = 0;
    for (int i = 0; i < size; ++i) {
        value |= quint64(quint8(data.at(int(at) + i))) << (8 * i);
    }
    return value;
}

bool ElfFile::fail(const QString& why)
{
    reason = why;
    all.clear();
    return false;
}

bool ElfFile::parse(const QByteArray& file)
{
    data = file;
    all.clear();
    reason.clear();
    if (data.size() < 0x40 || !data.startsWith("\x7F"
                                               "ELF")) {
        return fail(QStringLiteral("not an ELF file"));
    }
    if (data.at(4) != 1 && data.at(4) != 2) {
        return fail(QStringLiteral("unknown ELF class"));
    }
    if (data.at(5) != 1) {
        return fail(QStringLiteral("not little-endian"));
    }
    wide = data.at(4) == 2;
    machineCode = quint16(word(0x12, 2));
    const quint64 tableAt = wide ? word(0x28, 8) : word(0x20, 4);
    const quint64 entrySize = word(wide ? 0x3A : 0x2E, 2);
    const quint64 count = word(wide ? 0x3C : 0x30, 2);
    const quint64 namesIndex = word(wide ? 0x3E : 0x32, 2);
    if (entrySize < (wide ? 64u : 40u) || tableAt + entrySize * count > quint64(data.size()) ||
        namesIndex >= count) {
        return fail(QStringLiteral("section header table out of the file"));
    }
    QList<quint32> nameOffsets;
    for (quint64 i = 0; i < count; ++i) {
        const quint64 at = tableAt + i * entrySize;
        Section s;
        nameOffsets << quint32(word(at, 4));
        s.type = quint32(word(at + 4, 4));
        if (wide) {
            s.flags = word(at + 8, 8);
            s.offset = word(at + 24, 8);
            s.size = word(at + 32, 8);
            s.link = quint32(word(at + 40, 4));
            s.entrySize = word(at + 56, 8);
        } else {
            s.flags = word(at + 8, 4);
            s.offset = word(at + 16, 4);
            s.size = word(at + 20, 4);
            s.link = quint32(word(at + 24, 4));
            s.entrySize = word(at + 36, 4);
        }
        // Sections without file contents (.bss) may point past the end.
        if (s.type != 8 && s.offset + s.size > quint64(data.size())) {
            return fail(QStringLiteral("section %1 out of the file").arg(i));
        }
        all << s;
    }
    const QByteArray names = contents(all.at(int(namesIndex)));
    for (int i = 0; i < all.size(); ++i) {
        const int start = int(nameOffsets.at(i));
        if (start >= names.size()) {
            return fail(QStringLiteral("section name out of the name table"));
        }
        all[i].name = QByteArray(names.constData() + start);
    }
    return true;
}

const ElfFile::Section* ElfFile::section(const QByteArray& name) const
{
    for (const Section& s : all) {
        if (s.name == name) {
            return &s;
        }
    }
    return nullptr;
}

QByteArray ElfFile::contents(const Section& s) const
{
    return data.mid(int(s.offset), int(s.size));
}

QList<ElfFile::Symbol> ElfFile::dynamicSymbols() const
{
    QList<Symbol> out;
    for (const Section& table : all) {
        if (table.type != dynsym || table.entrySize == 0 || int(table.link) >= all.size()) {
            continue;
        }
        const QByteArray names = contents(all.at(int(table.link)));
        for (quint64 at = table.offset; at + table.entrySize <= table.offset + table.size;
             at += table.entrySize) {
            Symbol sym;
            const quint32 nameAt = quint32(word(at, 4));
            quint8 info = 0;
            if (wide) {
                info = quint8(word(at + 4, 1));
                sym.section = quint16(word(at + 6, 2));
            } else {
                info = quint8(word(at + 12, 1));
                sym.section = quint16(word(at + 14, 2));
            }
            sym.binding = info >> 4;
            sym.type = info & 0xF;
            if (int(nameAt) < names.size()) {
                sym.name = QByteArray(names.constData() + nameAt);
            }
            out << sym;
        }
    }
    return out;
}

} // namespace plugintest
