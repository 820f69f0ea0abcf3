#include "catalog/catalog_image.h"

#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {

/// The fields of a line behind its first word.
class Fields {
 public:
  explicit Fields(const std::string& line) : words_(split(line, '\t')) {}
  [[nodiscard]] const std::string& kind() const { return words_.front(); }
  std::string text() { return ++at_ < words_.size() ? words_[at_] : std::string(); }
  std::int64_t number() { return parse_number(text()).value_or(0); }

 private:
  std::vector<std::string> words_;
  std::size_t at_ = 0;
};

Catalog_Image::Entry read_entry(Fields& fields) {
  Catalog_Image::Entry entry;
  entry.id = fields.number();
  entry.type = fields.text();
  entry.backup_id = fields.number();
  entry.start_ms = fields.number();
  entry.end_ms = fields.number();
  entry.state = fields.text();
  entry.savepoint = fields.number();
  entry.savepoint_ms = fields.number();
  entry.branch = fields.number();
  entry.comment = fields.text();
  entry.message = fields.text();
  return entry;
}

Catalog_Image::File read_catalog_file(Fields& fields) {
  Catalog_Image::File file;
  fields.number();  // the backup id is its entry's
  file.source_id = fields.number();
  file.source_type = fields.text();
  file.host = fields.text();
  file.service = fields.text();
  file.size = fields.number();
  file.path = fields.text();
  file.destination = fields.text();
  file.external_id = fields.text();
  file.redo = fields.number();
  return file;
}

bool insert_entry(System_State& state, const std::string& database, const Catalog_Image::Entry& entry) {
  const bool ended = entry.end_ms != 0 && entry.state != "running" && entry.state != "cancel pending";
  if (!ended && entry.type == log_backup) return true;
  Statement row = state.sqlite().prepare(
      "INSERT INTO catalog(db,entry_type,backup_id,start_ms,end_ms,state,comment,message,savepoint,visible_ms,"
      "savepoint_ms,branch) VALUES(?,?,?,?,?,?,?,?,?,?,?,?)");
  row.bind(1, database).bind(2, entry.type).bind(3, entry.backup_id).bind(4, entry.start_ms);
  row.bind(5, ended ? entry.end_ms : now_ms()).bind(6, ended ? entry.state : "failed").bind(7, entry.comment);
  row.bind(8, ended ? entry.message : "The database was recovered while the backup was running");
  row.bind(9, entry.savepoint).bind(10, entry.start_ms).bind(11, entry.savepoint_ms).bind(12, entry.branch);
  if (!row.run()) return false;
  const std::int64_t id = sqlite3_last_insert_rowid(state.sqlite().raw());
  Catalog catalog(state);
  bool good = true;
  for (const Catalog_Image::File& file : entry.files)
    good = catalog.add_file(database, id, entry.backup_id, file) && good;
  if (entry.is_log)
    good = catalog.note_log(id, entry.log.first, entry.log.last, entry.log.segments, entry.log.until_ms) && good;
  return good;
}

}  // namespace

const Catalog_Image::Entry* Catalog_Image::data_backup(std::int64_t backup_id) const {
  for (const Entry& entry : entries)
    if (entry.backup_id == backup_id && entry.type != log_backup) return &entry;
  return nullptr;
}

Catalog_Image parse_catalog(const std::string& text, bool& good) {
  Catalog_Image image;
  std::map<std::int64_t, std::size_t> places;
  good = true;
  for (const std::string& line : split(text, '\n')) {
    if (line.empty()) continue;
    Fields fields(line);
    if (fields.kind() == "entry") {
      image.entries.push_back(read_entry(fields));
      places[image.entries.back().id] = image.entries.size() - 1;
      continue;
    }
    if (fields.kind() == "branch") {
      image.branches.push_back({fields.number(), fields.number(), fields.number()});
      continue;
    }
    const auto place = places.find(fields.number());
    if (place == places.end()) {
      good = false;
      continue;
    }
    Catalog_Image::Entry& entry = image.entries[place->second];
    if (fields.kind() == "file") entry.files.push_back(read_catalog_file(fields));
    if (fields.kind() == "log") {
      entry.is_log = true;
      entry.log = {fields.number(), fields.number(), fields.number(), fields.number()};
    }
  }
  return image;
}

bool replace_catalog(System_State& state, const std::string& database, const Catalog_Image& image) {
  bool good = true;
  for (const char* sql :
       {"DELETE FROM log_files WHERE entry_id IN (SELECT entry_id FROM catalog WHERE db=?)",
        "DELETE FROM catalog_files WHERE db=?", "DELETE FROM catalog WHERE db=?", "DELETE FROM branches WHERE db=?"}) {
    Statement clear = state.sqlite().prepare(sql);
    good = clear.bind(1, database).run() && good;
  }
  for (const Catalog_Image::Entry& entry : image.entries) good = insert_entry(state, database, entry) && good;
  for (const Catalog_Image::Branch& branch : image.branches) good = add_branch(state, database, branch) && good;
  return good;
}

bool add_branch(System_State& state, const std::string& database, const Catalog_Image::Branch& branch) {
  Statement row = state.sqlite().prepare("INSERT OR REPLACE INTO branches VALUES(?,?,?,?)");
  return row.bind(1, database).bind(2, branch.id).bind(3, branch.parent).bind(4, branch.fork).run();
}

}  // namespace standin
