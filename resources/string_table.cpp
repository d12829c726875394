// The library's string table: message texts by id; engine status n at 10000 + n.
// Generated once from the texts as written; \n is a line break, \t a tab.
#include "resources/string_table.h"

#include <algorithm>
#include <iterator>

namespace dbfile {

namespace {

struct Entry {
    unsigned id;
    const char* text;
};

const Entry kStrings[] = {
    {1, "The application cannot find the file, \"%1\", which is needed for operation."},
    {2, "Database: Error"},
    {3, "Can't find function \"BTRV\" in the database DLL!"},
    {4, "Message format does not exist in string table for message %0."},
    {12, "File:\t%0\nCode:\t%1\n\nMessage:\n%2"},
    {13, "File System Notification"},
    {14, "Btrieve version %d.%d detected.  Btrieve version must be %d.%d or higher."},
    {15, "No entry exists in the Data Dictionary file for %0. Cannot continue."},
    {16,
     "This field does not have an index associated with it. If you continue, an index will be "
     "created. Note: building an index could take a few moments.\nDo you wish to continue?"},
    {17, "DbFile could not create the specified directory."},
    {18, "Cannot connect to network resource %0."},
    {19, "Cannot access %0.  No drives available to assign."},
    {20,
     "File %0 has a duplicate field prompt (%1).  The Data Dictionary for use with Crystal Reports "
     "will be incorrect.  Please change the field prompt and try again."},
    {32, "True"},
    {33, "False"},
    {34, "Yes"},
    {35, "No"},
    {36, "On"},
    {37, "Off"},
    {38, "Active"},
    {39, "Inactive"},
    {160, ""},
    {161,
     "Unable to open the Auto-Increment number file to get a \"next available number\".  Your "
     "record will not be added. \n\nProbable Cause: Conflict with anti-virus software.  Exclude "
     "SmNumber.Dat from scan on server and all workstations and attempt operation again."},
    {162,
     "Unable to add to the Auto-Increment number file.  Cannot get a \"next available number\".  "
     "Your record will not be added."},
    {163,
     "Unable to goto record %0 in the Auto-Increment number file to get a \"next available "
     "number\".  Your record will not be added."},
    {164,
     "Unable to lock record %0 in the Auto-Increment number file to get a \"next available "
     "number\".  Your record will not be added.  \n\nProbable Cause: Conflict with anti-virus "
     "software.  Exclude SmNumber.Dat from scan on server and all workstations and attempt "
     "operation again."},
    {165,
     "Unable to write record %0 in the Auto-Increment number file.  Cannot get a \"next available "
     "number\".  Your record will not be added."},
    {166,
     "The file %1 does not have an index for its auto-increment field.  Cannot continue trying to "
     "find a \"next available number\".  Your data will not be saved."},
    {167,
     "Cannot open file %1 to check for highest \"next available number\".  Your record will not be "
     "saved."},
    {168, "Unable to obtain Auto-Increment value.\n\nRequested value is negative."},
    {176, "Unable to open alternate field data (%0) for file structure %1."},
    {999, "Undocumented error."},
    {10000, "Operation was successful."},
    {10001, "The operation parameter is invalid."},
    {10002, "The application encountered an I/O error."},
    {10003, "The file is not open."},
    {10004, "The application cannot find the key value."},
    {10005, "The record has a key field containing a duplicate key value."},
    {10006, "The key number parameter is invalid."},
    {10007, "The key number has changed."},
    {10008, "The current positioning is invalid."},
    {10009, "The operation encountered an end-of-file mark."},
    {10010, "The key field is not modifiable."},
    {10011, "The specified filename is invalid."},
    {10012, "Btrieve cannot find the specified file."},
    {10013, "This error is not used in Btrieve 6.x."},
    {10014, "Btrieve cannot create or open the pre-image file."},
    {10015, "The application encountered an I/O error during pre-imaging."},
    {10016, "The application encountered an expansion error."},
    {10017, "The application encountered a close error."},
    {10018, "The disk is full."},
    {10019, "The application encountered an unrecoverable error."},
    {10020, "The Record Manager or Requester is inactive."},
    {10021,
     "The key buffer parameter is too short.  Possible cause: the file's layout was changed after "
     "Vexa was built."},
    {10022,
     "The data buffer parameter is too short.  Possible cause: the file's layout was changed after "
     "Vexa was built."},
    {10023, "The position block parameter is not 128 bytes long."},
    {10024, "The page size or data buffer size is invalid."},
    {10025,
     "The application cannot create the specified file. This could be due to one of the "
     "following:\n\n\tDisk is full\n\tYou do not have permission\n\tFile is in use\n\tFile is "
     "flagged transactional"},
    {10026, "The number of keys specified is invalid."},
    {10027, "The key position is invalid."},
    {10028, "The record length is invalid."},
    {10029, "The key length is invalid."},
    {10030, "The file specified is not a Btrieve file."},
    {10031, "The file is already extended."},
    {10032, "The file cannot be extended."},
    {10034, "The specified extension name is invalid."},
    {10035, "The application encountered a directory error."},
    {10036, "The application envountered a transaction error."},
    {10037, "Another transaction is active."},
    {10038, "Btrieve encountered a transaction control file I/O error."},
    {10039, "A Begin Transaction operation must precede an End/Abort transaction operation."},
    {10040, "The file access request exceeds the maximum number of files allowed."},
    {10041, "Btrieve does not allow the attempted operation."},
    {10042, "A file previously opened in Accelerated mode was not closed."},
    {10043, "The specified record address is invalid."},
    {10044, "The specified key path is invalid."},
    {10045, "The specified key flags are invalid."},
    {10046, "Access to the requested file is denied."},
    {10047, "The number of files opened exceeds the maximum allowed."},
    {10048, "The alternate collating sequence definition is invalid."},
    {10049, "The extended key type is invalid."},
    {10050, "The file owner is already set."},
    {10051, "The owner name is invalid."},
    {10052, "This error is not used in Btrieve 6.x."},
    {10053, "The language interface version is invalid."},
    {10054, "The variable-length portion of the record is corrupt."},
    {10055, "The application specified an invalid attribute for an autoincrement key."},
    {10056, "An index is incomplete."},
    {10057, "This error is not used in Btrieve 6.x."},
    {10058, "The compression buffer length is too short."},
    {10059, "The specified file already exists."},
    {10060, "The specified reject count has been reached."},
    {10061, "The work space is too small."},
    {10062, "The descriptor is incorrect."},
    {10063, "The data buffer parameter specified on an Insert Extended operation is invalid."},
    {10064, "The filter limit has been reached."},
    {10065, "The field offset is incorrect."},
    {10066, "The maximum number of open databases has been exceeded."},
    {10067, "Btrieve cannot open the SQL data dictionaries."},
    {10068, "Btrieve cannot perform the Referential Integrity Delete Cascade operation."},
    {10069, "The Delete operation specified a file that is damaged."},
    {10071, "There is a violation of the Referential Integrity definitions."},
    {10072, "Btrieve cannot open the Referential Integrity-Referenced file."},
    {10073, "The Referential Integrity definition is out of sync."},
    {10074, "Btrieve aborted the transaction."},
    {10076, "There is a conflict on the referenced file."},
    {10077, "The application encountered a wait error."},
    {10078, "Btrieve detected a deadlock condition."},
    {10079, "A programming error occurred."},
    {10080, "Btrieve encountered a record-level conflict."},
    {10081,
     "Lock error.\nEither someone else has locked the record, or you have attempted to lock too "
     "many records (by, for example, selecting many rows in a data grid).  See your manual for "
     "instructions on increasing the lock count."},
    {10082, "Btrieve lost positioning."},
    {10083, "Btrieve attempted to read a record outside the transaction."},
    {10084,
     "The record or page is locked. Someone else may be editing this record, or the record may be "
     "locked by some other process. Please try again later."},
    {10085,
     "Unable to retrieve information.  The file is in use by another user performing a batch "
     "process."},
    {10086,
     "Too many files open.\n\nSee your manual for instructions on increasing the number of files "
     "you can have open simultaneously."},
    {10087,
     "Too many files open.\n\nSee your manual for instructions on increasing the number of files "
     "you can have open simultaneously."},
    {10088,
     "The application encountered a sharing violation or incompatible mode error. Have other users "
     "exit prior to running this operation."},
    {10090, "This error is not used in Btrieve 6.x."},
    {10091, "The application encountered a server error."},
    {10092, "The transaction table is full."},
    {10093, "The record lock types are incompatible."},
    {10094,
     "Unable to open file.  The file is either in use by another user performing a batch process, "
     "or else you do not have proper privileges to access the file."},
    {10095, "The session is no longer valid."},
    {10096, "A communications environment error occurred."},
    {10097,
     "The data buffer is too small.  Possible cause: the file's layout was changed after Vexa was "
     "built."},
    {10098, "Btrieve detected an internal transaction error."},
    {10099, "Btrieve requester unable to access NetWare Runtime server."},
    {10100, "No cache buffers are available."},
    {10101, "Insufficient operating system memory is available."},
    {10102, "Insufficient stack space is available."},
    {10103, "The chunk offset is too big."},
    {10104, "Btrieve does not recognize the locale."},
    {10105, "The file cannot be created with Variable-tail Allocation Tables (VATs)."},
    {10106, "The chunk cannot perform a Get Next operation."},
    {10107, "The application attempted to perform a chunk operation on a pre-v6.0 file."},
    {10109, "The applciation's transaction has become too complex."},
    {10130, "Btrieve ran out of system locks."},
    {10133, "More than 5 concurrent users attempted to access the same Btrieve file."},
    {11001, "The lock parameter is out of range."},
    {11002, "A memory allocation error occurred."},
    {11003, "An invalid memory size parameter was specified."},
    {11005, "The pre-image/lock drive parameter is invalid."},
    {11007, "The file parameter is out of range."},
    {11008, "The initialization parameter is invalid."},
    {11009, "The transaction filename parameter is invalid."},
    {11010, "An error occurred during the access of the transaction control file."},
    {11011, "The compression buffer parameter is out of range."},
    {11013, "The task list is full."},
    {11014, "Stop warning.  The application still has files or transactions active."},
    {11015, "One of the pointer parameters passed to Btrieve is invalid."},
    {11016, "Btrieve is already initialized."},
    {11017, "Btrieve requester is unable to find the resource file WBTRVRES.DLL."},
    {11018,
     "The application attempted to call Btrieve (either BTRCALL or BTRCALLID) from a Btrieve "
     "callback function."},
    {11019,
     "The Btrieve engine cancelled the current Btrieve operation at the request of the "
     "application's Btrieve callback function."},
    {12001, "The memory allocation is insufficient."},
    {12002, "The option is invalid or out of range."},
    {12003, "The Requester does not allow local access to the specified file."},
    {12004, "SPX is not installed."},
    {12005, "An incorrect version of SPX is installed."},
    {12006, "There is no available SPX connection."},
    {12007, "A pointer parameter is invalid."},
};

}  // namespace

const char* LoadLibString(unsigned id) {
    auto it = std::lower_bound(std::begin(kStrings), std::end(kStrings), id,
                               [](const Entry& e, unsigned v) { return e.id < v; });
    return it != std::end(kStrings) && it->id == id ? it->text : nullptr;
}

}  // namespace dbfile
