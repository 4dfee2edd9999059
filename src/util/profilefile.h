#pragma once

#include <QString>

// The Windows profile (".ini") file layout, read and written the way the Windows profile
// functions do, on native paths:
//
// - "[Section]" lines open a section; "key=value" lines inside it hold the values.
//   Section and key names compare without regard to case and with surrounding blanks
//   ignored. When a section or a key occurs twice, the first one counts.
// - A value is read with its surrounding blanks removed, and one pair of matching quotes
//   around it taken off.
// - Every other line (comments, blank lines, text before the first section, lines with
//   no '=', odd spacing) is kept byte for byte by a write. A write replaces only the
//   line of its key ("Key=value", the key's own spelling kept), appends a new key after
//   the last non-blank line of its section, or appends "[Section]" and the key at the end
//   of the file. Written lines end in CR LF; files with bare LF line ends read the same.
// - The bytes are Windows-1252. Text that has no Windows-1252 form is refused.
// - Every write replaces the file atomically (a temporary file, then a rename); a new
//   file is readable and writable by its owner only.
//
// Reads are served from a parsed copy of the file that is checked against the file's
// size, modification time and inode on every read, so another process's change is seen
// while a run of reads of an unchanged file parses it once.
namespace ProfileFile {

// The value of [section] key; a null string when the file, the section or the key is
// missing. Never throws.
QString read(const QString& nativePath, const QString& section, const QString& key);

// Writes [section] key=value, creating the file, the section and the key as needed.
// Throws AppError (nothing changed) when a name or the value has no Windows-1252 form
// or the file cannot be written.
void write(const QString& nativePath, const QString& section, const QString& key,
           const QString& value);

// Forgets every parsed copy that has no writes pending (tests).
void clearCache();

// Gathers the writes to one file while it lives: each write changes the parsed copy only
// (reads see it at once), and commit() - or the destructor - replaces the file once with
// all of them. A routine that writes many keys in a row thus writes the file once instead
// of once a key. Writes still refuse bad text at once; only errors of the file itself wait
// for commit(), which throws AppError (the file then stays as it was before the batch; the
// destructor only logs). Batches on one file nest; the outermost one writes.
class WriteBatch final
{
public:
    explicit WriteBatch(const QString& nativePath);
    ~WriteBatch();
    WriteBatch(const WriteBatch&) = delete;
    WriteBatch& operator=(const WriteBatch&) = delete;

    void commit();

private:
    QString m_path;
};

} // namespace ProfileFile
