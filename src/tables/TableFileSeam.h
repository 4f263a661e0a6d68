#pragma once

class QString;

// Points inside table file reading and writing where another writer may change the file
// behind its name. Tests set a hook to replay such an interleaving exactly; no hook is set
// otherwise.
namespace TableFileSeam {
enum Point {
    CsvSizeTaken,    // a CSV file is open and its size taken; its rows are read next
    RemovingOldFile, // a file to be written afresh was found there; it is removed next
    OldFileRemoved,  // the file to be written afresh is gone; the new one is made next
};
using Hook = void (*)(Point point, const QString& fileName);
void setHook(Hook hook);
// Runs the hook, when one is set.
void reach(Point point, const QString& fileName);
} // namespace TableFileSeam
