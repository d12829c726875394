// The dictionary file: entries written and read back into record-file
// objects, editing and renumbering, lookups and alternates, create buffers
// against what the engine reports, and opening or replacing the file itself.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "dbtest.h"

namespace {

constexpr int SEG = 0x0010, DUPS = 0x0001, MODIF = 0x0002, NOCASE = 0x0400;

std::vector<int> FieldIds(CddFldList& list) {
    std::vector<int> out;
    for (int ok = list.First(); ok; ok = list.Next())
        out.push_back(list.GetFldId());
    return out;
}

class DictionaryTest : public dbtest::DictionaryFolder {
  protected:
    // The customer entry: fields given with ids 4, 9, 2, 7 (renumbered when
    // written), a key on the id and a two-segment key on name and id,
    // one relation and both markers.
    int WriteCustomer(const char* fileName = "Customer.dat") {
        cdd->Clear();
        std::strcpy(cdd->m_FileDat.SymName, "CCustomer");
        std::strcpy(cdd->m_FileDat.FileName, fileName);
        std::strcpy(cdd->m_FileDat.FileDesc, "Customers");
        cdd->m_FileDat.FileType = dbFileData;
        cdd->m_FileDat.FileSpec.PageSize = 4096;
        cdd->AddField(4, 0, 4, dbInteger, 0, "CustId", "Customer number", "Customer:");
        cdd->AddField(9, 4, 30, dbZString, 0, "Name", "Customer name", "Name:");
        cdd->AddField(2, 34, 8, dbMoney, 2, "Balance", "Balance owing", "Balance:");
        cdd->AddField(7, 42, 4, dbDate, 0, "Since", "Customer since", "Since:");
        cdd->AddKey(0, "ById", "CustId", 0);
        cdd->AddKey(1, "ByName", "Name", SEG | DUPS | MODIF | NOCASE);
        cdd->AddKey(1, "ByName", "CustId", DUPS | MODIF);
        cdd->m_RelList.Add(new CddRelElem("Invoices", "CustId"));
        cdd->m_bOneRcdFile = 1;
        cdd->m_bOutdated = 1;
        return cdd->Insert(nullptr);
    }

    // An entry with fields only.
    int WritePlain(const char* fileName, std::initializer_list<const char*> names) {
        cdd->Clear();
        cdd->m_bOneRcdFile = 0;
        cdd->m_bOutdated = 0;
        std::strcpy(cdd->m_FileDat.FileName, fileName);
        cdd->m_FileDat.FileType = dbFileHistory;
        cdd->m_FileDat.FileSpec.PageSize = 4096;
        uint16_t offset = 0;
        for (const char* n : names) {
            cdd->AddField(0, offset, 10, dbString, 0, n, "", "");
            offset += 10;
        }
        return cdd->Insert(nullptr);
    }
};

TEST_F(DictionaryTest, EntryRoundTripsIntoARecordFile) {
    ASSERT_EQ(WriteCustomer(), 0);
    EXPECT_EQ(cdd->GetBytesRead(), 175 + (27 + 6 + 15 + 9) + (27 + 4 + 13 + 5) + (27 + 7 + 13 + 8) +
                                       (27 + 5 + 14 + 6) + 3 * 39 + (12 + 8 + 6 + 2) + 11 + 9);
    // Looked up by its bare name, whatever the case.
    CDbFile f("CUSTOMER.DAT");
    EXPECT_STREQ(f.m_FileDat.SymName, "CCustomer");
    EXPECT_STREQ(f.m_FileDat.FileDesc, "Customers");
    EXPECT_EQ(+f.m_FileDat.FldCount, 4);
    EXPECT_EQ(+f.m_FileDat.FileSpec.RecLen, 46);
    EXPECT_EQ(+f.m_FileDat.FileSpec.NdxCount, 2);  // keys, not segments
    EXPECT_EQ(FieldIds(f.m_FldList), (std::vector<int>{0, 1, 2, 3}));
    ASSERT_EQ(f.m_FldList.Find(2), 1);
    EXPECT_STREQ(f.m_FldList.GetFldName(), "Balance");
    EXPECT_STREQ(f.m_FldList.GetFldDesc(), "Balance owing");
    EXPECT_STREQ(f.m_FldList.GetFldPrompt(), "Balance:");
    EXPECT_EQ(f.m_FldList.GetFldType(), dbMoney);
    EXPECT_EQ(f.m_FldList.GetFldNumDP(), 2);
    EXPECT_EQ(f.m_FldList.GetFldOffset(), 34);
    // Segments follow their fields' new ids.
    ASSERT_EQ(f.m_KeyList.Count(), 3);
    f.m_KeyList.Find(1);
    EXPECT_STREQ(f.m_KeyList.GetKeyName(), "ByName");
    EXPECT_EQ(f.m_KeyList.GetFldId(), 1);
    EXPECT_EQ(f.m_KeyList.GetPosition(), 5);
    EXPECT_EQ(f.m_KeyList.GetLength(), 30);
    EXPECT_EQ(f.m_KeyList.GetFlags(), SEG | DUPS | MODIF | NOCASE);
    EXPECT_EQ(f.m_KeyList.GetType(), dbZString);
    f.m_KeyList.Find(2);
    EXPECT_EQ(f.m_KeyList.GetFldId(), 0);
    EXPECT_EQ(f.m_KeyList.GetKeyNo(), 1);
    LLPosition p;
    CddRelElem* rel = f.m_RelList.First(p);
    ASSERT_NE(rel, nullptr);
    EXPECT_STREQ(rel->m_Name, "Invoices");
    EXPECT_STREQ(rel->m_Text, "CustId");
    EXPECT_EQ(f.m_RelList.Next(p), nullptr);
    EXPECT_EQ(f.m_bOneRcdFile, 1);
    EXPECT_EQ(f.m_bOutdated, 1);
    // A bare name goes to its type's directory; a name with a directory of
    // its own stays there, and finds its entry by its last part.
    EXPECT_EQ(std::string(f.FileName()), std::string(CDbFile::GetDataPath()) + "/CUSTOMER.DAT");
    std::string own = dir.File("elsewhere/Customer.dat");
    CDbFile there(own.c_str());
    EXPECT_EQ(std::string(there.FileName()), own);
    EXPECT_EQ(there.m_FldList.Count(), 4);
    CDbFile given("Customer.dat", dir.path().c_str());
    EXPECT_EQ(std::string(given.FileName()), dir.File("Customer.dat"));

    // Fields only: no keys, no relations, both markers off.
    ASSERT_EQ(WritePlain("Plain.dat", {"A", "B"}), 0);
    EXPECT_EQ(cdd->GetBytesRead(), 175 + 2 * (27 + 1 + 0));
    CDbFile plain("plain.dat");
    EXPECT_EQ(plain.m_FldList.Count(), 2);
    EXPECT_EQ(plain.m_KeyList.Count(), 0);
    EXPECT_EQ(plain.m_RelList.Count(), 0);
    EXPECT_EQ(plain.m_bOneRcdFile, 0);
    EXPECT_EQ(plain.m_bOutdated, 0);
    EXPECT_EQ(std::string(plain.FileName()), std::string(CDbFile::GetHistPath()) + "plain.dat");
    EXPECT_TRUE(log.Take().empty());
}

TEST_F(DictionaryTest, EditingKeepsKeysOnTheirFields) {
    const int lengths[] = {10, 4, 6};
    for (int i = 0; i < 3; ++i) {
        auto* e = new CddFldElem;
        e->m_Fld.FldId = uint16_t(i);
        e->m_Fld.Length = uint16_t(lengths[i]);
        std::snprintf(e->m_Fld.Name, sizeof(e->m_Fld.Name), "F%d", i);
        EXPECT_EQ(cdd->AddFld(e), 1);
        EXPECT_EQ(cdd->m_FldList.Current(), e);
    }
    cdd->AddKey(0, "Third", "F2", 0);
    cdd->AddKey(1, "FirstAndSecond", "F0", SEG);
    cdd->AddKey(1, "FirstAndSecond", "F1", 0);
    cdd->AddKey(2, "Second", "F1", 0);
    cdd->AddKey(3, "Nothing", "NoSuchField", 0);
    cdd->m_KeyList.Find(0);
    EXPECT_EQ(cdd->m_KeyList.GetPosition(), 15);
    cdd->m_KeyList.Last();
    EXPECT_EQ(cdd->m_KeyList.GetFldId(), 0xFFFF);
    EXPECT_EQ(cdd->m_KeyList.GetLength(), 0xFFFF);
    EXPECT_EQ(int(cdd->m_KeyList.GetType()), 0xFF);
    cdd->m_KeyList.DelKey();
    EXPECT_EQ(cdd->GetSortKeyNo(), 3);
    EXPECT_EQ(cdd->GetKeyNoUsingFldId(1), 2);  // key 1's second segment does not count
    EXPECT_EQ(cdd->GetKeyNoUsingFldId(0), 1);
    EXPECT_EQ(cdd->GetKeyNoUsingFldId(9), -1);

    ASSERT_EQ(cdd->DelFld(0), 1);
    EXPECT_EQ(cdd->DelFld(0), 0);
    ASSERT_EQ(cdd->m_FldList.Find(0), 1);
    EXPECT_EQ(cdd->m_FldList.GetFldOffset(), 0);
    cdd->m_FldList.Next();
    EXPECT_EQ(cdd->m_FldList.GetFldOffset(), 4);
    cdd->m_KeyList.Find(0);
    EXPECT_EQ(cdd->m_KeyList.GetPosition(), 5);
    EXPECT_EQ(cdd->m_KeyList.GetLength(), 6);
    cdd->m_KeyList.Find(1);  // its field is gone: left as it was
    EXPECT_EQ(cdd->m_KeyList.GetPosition(), 1);
    // Inserting in front moves everything up and keeps ids.
    auto* front = new CddFldElem;
    front->m_Fld.FldId = 7;
    front->m_Fld.Length = 2;
    cdd->InsFld(0, front);
    cdd->m_KeyList.Find(0);
    EXPECT_EQ(cdd->m_KeyList.GetPosition(), 7);
    // Renumbering by position.
    cdd->AdjustFieldIds();
    EXPECT_EQ(FieldIds(cdd->m_FldList), (std::vector<int>{0, 1, 2}));
    cdd->m_KeyList.Find(0);
    EXPECT_EQ(cdd->m_KeyList.GetFldId(), 2);
    EXPECT_EQ(CCdd(nullptr, "x").GetSortKeyNo(), 1);
}

TEST_F(DictionaryTest, MissingEntriesAndAlternates) {
    ASSERT_EQ(WriteCustomer(), 0);
    ASSERT_EQ(WritePlain("Branch.dat", {"Region"}), 0);
    EXPECT_EQ(dbtest::Thrown([] { CDbFile f("nothing.dat"); }), 0);  // no entry
    EXPECT_EQ(log.TakeOne(),
              "5|No entry exists in the Data Dictionary file for nothing.dat. Cannot "
              "continue.");
    EXPECT_NE(CDbFile::m_CddError, 0);

    // The branch file takes the customer fields and keeps its own record.
    CDbFile::SetAlternateFile("Branch.dat", "Customer.dat");
    CDbFile branch("BRANCH.dat");
    EXPECT_STREQ(branch.m_FileDat.FileName, "Branch.dat");
    EXPECT_EQ(+branch.m_FileDat.FileType, dbFileHistory);
    EXPECT_EQ(branch.m_KeyList.Count(), 0);
    EXPECT_EQ(branch.m_bOneRcdFile, 0);
    ASSERT_EQ(branch.m_FldList.Count(), 4);
    branch.m_FldList.First();
    EXPECT_STREQ(branch.m_FldList.GetFldName(), "CustId");
    // Set and removed case-sensitively, found ignoring case.
    CDbFile::SetAlternateFile("BRANCH.DAT", "Missing.dat");
    EXPECT_EQ(CDbFile::FindAlternateFile("branch.dat"), "Customer.dat");
    CDbFile::SetAlternateFile("Branch.dat", "");
    EXPECT_EQ(CDbFile::FindAlternateFile("branch.dat"), "Missing.dat");
    EXPECT_EQ(dbtest::Thrown([] { CDbFile f("Branch.dat"); }), 0);  // no alternate
    auto shown = log.Take();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[0],
              "0|Unable to open alternate field data (Missing.dat) for file structure "
              "Branch.dat.");
    EXPECT_EQ(shown[1].substr(0, 2), "5|");
    CDbFile::SetAlternateFile("BRANCH.DAT", nullptr);
    EXPECT_EQ(CDbFile::FindAlternateFile("branch.dat"), "");
}

TEST_F(DictionaryTest, CreateBufferAgreesWithStat) {
    ASSERT_EQ(WriteCustomer(), 0);
    CDbFile f("Customer.dat");
    unsigned short len = 0;
    cdd->OverrideDemographics(&f.m_FileDat, &f.m_FldList, &f.m_KeyList, &f.m_RelList,
                              &f.m_bOneRcdFile, &f.m_bOutdated);
    const char* spec = cdd->GetCreateSpec(&len);
    cdd->OverrideDemographics(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
    ASSERT_EQ(len, 16 + 3 * 16);
    EXPECT_EQ(rmtest::Get16(reinterpret_cast<const uint8_t*>(spec) + 4), 2);
    EXPECT_EQ(uint8_t(spec[16 + 10]), 1);   // integer
    EXPECT_EQ(uint8_t(spec[32 + 10]), 11);  // zstring
    EXPECT_EQ(rmtest::Get16(reinterpret_cast<const uint8_t*>(spec) + 32 + 4),
              SEG | DUPS | MODIF | NOCASE | 0x0100);

    // Created on first open, in the data directory made for it.
    ASSERT_EQ(f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    EXPECT_EQ(access(f.FileName(), F_OK), 0);
    ASSERT_EQ(f.GetFileStatistics(nullptr), 0);
    const DbStatStruct& st = f.m_FileStat;
    EXPECT_EQ(st.GetRcdLen(), 46);
    EXPECT_EQ(st.GetPageSize(), 4096);
    EXPECT_EQ(st.GetNdxCount(), 2);
    EXPECT_EQ(st.GetRcdCount(), 0);
    EXPECT_FALSE(st.IsVarLen());
    DbStatKeyList keys = st.m_KeyList;
    ASSERT_EQ(keys.Count(), 3);
    ASSERT_EQ(keys.FindIndex(4, 0), 1);
    EXPECT_EQ(keys.GetKeyNo(), 1);
    EXPECT_EQ(keys.GetFldLen(), 30);
    EXPECT_EQ(keys.FindIndex(0, 0), 1);
    EXPECT_EQ(keys.GetKeyNo(), 0);
    keys.Find(2);
    EXPECT_EQ(keys.GetPosition(), 1);
    EXPECT_EQ(+keys.GetKeySpec()->Type, 1);
    // The record length the dictionary gives is the one the buffer gets.
    EXPECT_EQ(f.GetRcdLength(), 46);
    EXPECT_EQ(f.GetBytesRead(), 46);

    // Replace 0 keeps the file (59); replace 1 empties it.
    f.SetBrowser(1);
    f.SetDataLen(46);
    ASSERT_EQ(f.Insert(nullptr), 0);
    ASSERT_EQ(f.Close(nullptr), 0);
    std::vector<uint8_t> buf(spec, spec + len);
    f.SetErrOverride(1);
    EXPECT_EQ(f.Create(nullptr, buf.data(), len, 0), 59);
    ASSERT_EQ(f.Open(nullptr), 0);
    EXPECT_EQ(f.GetRcdCount(), 1u);
    ASSERT_EQ(f.Close(nullptr), 0);
    char text[] = "ignored";
    EXPECT_EQ(f.Create(nullptr, text), 0);
    ASSERT_EQ(f.Open(nullptr), 0);
    EXPECT_EQ(f.GetRcdCount(), 0u);
    // Statistics of a file without keys: an empty key list.
    CDbFile bare(dir.File("keyless.dat").c_str(), nullptr, 1);
    std::vector<uint8_t> keyless = rmtest::Spec(20, {}, 0x0001);
    ASSERT_EQ(bare.Create(nullptr, keyless.data(), uint16_t(keyless.size()), 1), 0);
    // Every missing directory on the way is made.
    std::string deep = dir.File("deep/er/keyless.dat");
    ASSERT_EQ(bare.Create(nullptr, keyless.data(), uint16_t(keyless.size()), deep.data(), 1), 0);
    EXPECT_EQ(access(deep.c_str(), F_OK), 0);
    ASSERT_EQ(bare.Open(nullptr), 0);
    ASSERT_EQ(bare.GetFileStatistics(), 0);
    EXPECT_EQ(bare.m_FileStat.m_KeyList.Count(), 0);
    EXPECT_EQ(bare.m_FileStat.m_KeyList.FindByKeyNo(0), 0);
    EXPECT_TRUE(bare.m_FileStat.IsVarLen());
    EXPECT_FALSE(bare.m_FileStat.IsKeyOnly());
}

TEST_F(DictionaryTest, TheDictionaryFileItself) {
    ASSERT_EQ(WriteCustomer(), 0);
    // As created: the id numbered by the engine, the name key ignoring case.
    ASSERT_EQ(cdd->GetFileStatistics(), 0);
    EXPECT_EQ(cdd->m_FileStat.GetRcdLen(), 175);
    EXPECT_EQ(cdd->m_FileStat.GetFlags() & 0x0401, 0x0401);
    ASSERT_EQ(cdd->m_FileStat.m_KeyList.FindByKeyNo(1), 1);
    EXPECT_EQ(cdd->m_FileStat.m_KeyList.GetPosition(), 24);
    EXPECT_EQ(cdd->m_FileStat.m_KeyList.GetFlags() & 0x0400, 0x0400);
    EXPECT_EQ(+CDbFile("Customer.dat").m_FileDat.FileId, 1);
    EXPECT_EQ(WriteCustomer("CUSTOMER.DAT"), 5);  // the name is unique, any case
    log.Take();

    // Replaced by an empty one when opened with create.
    cdd.reset();
    dbtest::ResetLibrary();
    dbtest::UseDictionary(dir.File("vexa.ddf"));
    CCdd fresh(nullptr, g_CddFileName);
    ASSERT_EQ(fresh.Open(nullptr, dbOpenCreate, 1), 0);
    EXPECT_EQ(fresh.GetRcdCount(), 0u);
    ASSERT_EQ(fresh.Close(nullptr), 0);

    // A missing dictionary is not created by a record file; its status is thrown.
    dbtest::UseDictionary(dir.File("none.ddf"));
    EXPECT_EQ(dbtest::Thrown([] { CDbFile f("Customer.dat"); }), 12);
    EXPECT_EQ(CDbFile::m_CddError, 12);
    EXPECT_EQ(CDbFile::m_TheCdd, nullptr);
    EXPECT_NE(access(dir.File("none.ddf").c_str(), F_OK), 0);
}

TEST_F(DictionaryTest, FieldMetadataByIdAndName) {
    ASSERT_EQ(WriteCustomer(), 0);
    cdd->SetKey("Customer.dat", 12, 1);  // read back, then changed
    ASSERT_EQ(cdd->GetEqual(nullptr), 0);
    cdd->m_FldList.Find(1);
    cdd->m_FldList.SetFldNameForDDF("Name");
    cdd->m_FldList.SetFldCodeId(12);
    cdd->m_FldList.SetFldDispCode(dbDispCodeTable);
    cdd->m_FldList.Find(3);
    cdd->m_FldList.SetFldPrompt("Customer:");  // the same prompt as the first field
    ASSERT_EQ(cdd->Update(nullptr), 0);
    CDbFile f("Customer.dat");
    EXPECT_EQ(f.GetFieldCount(), 4);
    EXPECT_EQ(f.GetFieldLength(1), 30);
    EXPECT_EQ(f.GetFieldOffset(1), 4);
    EXPECT_EQ(f.GetFieldNumDP(2), 2);
    EXPECT_STREQ(f.GetFieldPrompt(2), "Balance:");
    EXPECT_STREQ(f.GetFieldDesc(1), "Customer name");
    EXPECT_STREQ(f.GetFieldName(3), "Since");
    EXPECT_STREQ(f.GetFieldNameForDDF(1), "Name");
    EXPECT_EQ(f.GetFieldType(3), dbDate);
    EXPECT_EQ(f.GetFieldDispCode(1), dbDispCodeTable);
    EXPECT_EQ(f.GetFieldCodeId(1), 12);
    // Unknown ids and names answer zero values and no texts.
    EXPECT_EQ(f.GetFieldType(99), dbString);
    EXPECT_EQ(f.GetFieldName(99), nullptr);
    EXPECT_EQ(f.GetFieldLength(99), 0);
    EXPECT_EQ(f.GetFieldLength("NoSuchField"), 0);
    EXPECT_EQ(f.GetFieldPrompt("NoSuchField"), nullptr);
    EXPECT_EQ(f.GetFieldLength("Name"), 30);
    EXPECT_EQ(f.GetFieldType("Balance"), dbMoney);
    EXPECT_EQ(f.GetFieldOffset("Since"), 42);
    EXPECT_EQ(f.GetFieldIdOfName("name"), -1);  // names are case-sensitive
    EXPECT_EQ(f.GetFieldIdOfName("Name"), 1);
    EXPECT_EQ(f.GetFieldIdOfPrompt("Customer:"), 0);  // the first of two
    CString ref;
    EXPECT_STREQ(f.GetFieldNameForCrystal(1, ref), "{Customer.Name}");
    EXPECT_EQ(ref, "{Customer.Name}");
    std::strcpy(f.m_FileDat.FileName, ".hidden");
    EXPECT_STREQ(f.GetFieldNameForCrystal(99, ref), "{.hidden.}");
    std::strcpy(f.m_FileDat.FileName, "NODOT");
    EXPECT_STREQ(f.GetFieldNameForCrystal(1, ref), "{NODOT.Name}");
    // Keys as the engine reports them: key 1 starts at the name field.
    std::strcpy(f.m_FileDat.FileName, "Customer.dat");
    ASSERT_EQ(f.Open(nullptr, dbOpenType(dbOpenNormal | dbOpenCreate)), 0);
    EXPECT_EQ(f.GetFieldIdOfKey(1), 1);
    EXPECT_EQ(f.GetFieldIdOfKey(0), 0);
    EXPECT_EQ(f.GetFieldIdOfKey(5), -1);
    EXPECT_EQ(CDbFile("loose.dat", nullptr, 1).GetFieldCount(), 0);
}

TEST_F(DictionaryTest, ServerPathsAskAboutTheDictionaryFileThere) {
    ASSERT_EQ(WritePlain("file.ddf", {"X"}), 0);
    // The engine here serves no server platform; the directory asked about
    // is the file's own, made when missing.
    EXPECT_EQ(CDbFile::IsServerPath(dir.File("Co/Cust.dat").c_str()), 0);
    EXPECT_EQ(access(dir.File("Co").c_str(), F_OK), 0);
    EXPECT_EQ(CDbFile::IsServerPath(dir.File("Other/").c_str()), 0);
    EXPECT_EQ(access(dir.File("Other").c_str(), F_OK), 0);
}

}  // namespace
