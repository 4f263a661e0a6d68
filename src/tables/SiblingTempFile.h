#pragma once

#include <QString>

// A temporary file beside a target, renamed over the target once it is complete, so
// that a failed or interrupted write never leaves a half-written target behind. The
// temporary file is removed when the object goes away without a commit. A target that is
// a symbolic link stays one: the file it points to is replaced, and keeps its permissions.
class SiblingTempFile
{
public:
    explicit SiblingTempFile(const QString& target);
    ~SiblingTempFile();

    // Creates the empty temporary file; false when the target's folder is not writable or
    // the target is a file that may not be written (readOnly()).
    bool create();
    bool readOnly() const { return m_readOnly; }
    QString path() const { return m_path; }
    // Renames the temporary file over the target.
    bool commit();

    SiblingTempFile(const SiblingTempFile&) = delete;
    SiblingTempFile& operator=(const SiblingTempFile&) = delete;

private:
    QString m_target;
    QString m_path;
    bool m_committed = false;
    bool m_readOnly = false;
};
