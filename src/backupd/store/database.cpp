#include "backupd/store/database.h"

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <condition_variable>
#include <mutex>
#include <unordered_map>

#include "backupd/store/schema.h"
#include "platform/file_root.h"
#include "platform/log.h"

namespace backupd {

namespace {

constexpr int busy_timeout_seconds = 30;

/// A prepared statement with the places that its parameters and columns are bound to.
struct Prepared {
  Prepared(soci::session& session, const std::string& sql, const Sql_Values& values, std::size_t columns)
      : statement(session),
        numbers(values.size()),
        texts(values.size()),
        flags(values.size(), soci::i_ok),
        out(columns),
        out_flags(columns, soci::i_ok) {
    statement.alloc();
    statement.prepare(sql);
    for (std::size_t i = 0; i < columns; ++i) statement.exchange(soci::into(out[i], out_flags[i]));
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (std::holds_alternative<std::int64_t>(values[i]))
        statement.exchange(soci::use(numbers[i], flags[i]));
      else
        statement.exchange(soci::use(texts[i], flags[i]));
    }
    statement.define_and_bind();
  }

  void bind(const Sql_Values& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      flags[i] = soci::i_ok;
      if (const auto* number = std::get_if<std::int64_t>(&values[i]))
        numbers[i] = *number;
      else if (const auto* text = std::get_if<std::string>(&values[i]))
        texts[i] = *text;
      else
        flags[i] = soci::i_null;
    }
  }

  [[nodiscard]] Sql_Row row() const {
    std::vector<std::optional<std::string>> columns(out.size());
    for (std::size_t i = 0; i < out.size(); ++i)
      if (out_flags[i] == soci::i_ok) columns[i] = out[i];
    return Sql_Row(std::move(columns));
  }

  soci::statement statement;
  std::vector<long long> numbers;
  std::vector<std::string> texts;
  std::vector<soci::indicator> flags;
  std::vector<std::string> out;
  std::vector<soci::indicator> out_flags;
};

/// One text serves a number and a text parameter by two prepared statements.
std::string cache_key(const std::string& sql, const Sql_Values& values) {
  std::string key = sql;
  key += '\0';
  for (const Sql_Value& value : values) key += std::holds_alternative<std::int64_t>(value) ? 'n' : 't';
  return key;
}

}  // namespace

struct Sql_Session::Impl {
  soci::session session;
  std::unordered_map<std::string, std::unique_ptr<Prepared>> prepared;

  void open(const std::string& path) {
    session.open(soci::sqlite3, "dbname=\"" + path + "\" timeout=" + std::to_string(busy_timeout_seconds));
    session << "PRAGMA journal_mode=WAL";
    session << "PRAGMA synchronous=FULL";
  }

  Prepared& statement(const std::string& sql, const Sql_Values& values, std::size_t columns) {
    std::unique_ptr<Prepared>& slot = prepared[cache_key(sql, values)];
    if (!slot) slot = std::make_unique<Prepared>(session, sql, values, columns);
    slot->bind(values);
    return *slot;
  }
};

std::int64_t Sql_Row::number(std::size_t column) const {
  const std::optional<std::string>& text = columns_.at(column);
  return text ? std::strtoll(text->c_str(), nullptr, 10) : 0;
}

Sql_Rows Sql_Session::query(const std::string& sql, const Sql_Values& values, std::size_t columns) {
  Sql_Rows rows;
  if (failed_) return rows;
  try {
    Prepared& prepared = impl_.statement(sql, values, columns);
    for (bool more = prepared.statement.execute(true); more; more = prepared.statement.fetch())
      rows.push_back(prepared.row());
  } catch (const std::exception& error) {
    fail(sql, error.what());
    rows.clear();
  }
  return rows;
}

std::optional<Sql_Row> Sql_Session::first(const std::string& sql, const Sql_Values& values, std::size_t columns) {
  Sql_Rows rows = query(sql, values, columns);
  if (rows.empty()) return std::nullopt;
  return std::move(rows.front());
}

std::int64_t Sql_Session::execute(const std::string& sql, const Sql_Values& values) {
  if (failed_) return 0;
  try {
    Prepared& prepared = impl_.statement(sql, values, 0);
    prepared.statement.execute(true);
    return prepared.statement.get_affected_rows();
  } catch (const std::exception& error) {
    fail(sql, error.what());
    return 0;
  }
}

std::int64_t Sql_Session::next_number(std::string_view counter) {
  const std::string name(counter);
  if (execute("UPDATE counters SET value = value + 1 WHERE name = :a", {name}) == 0)
    execute("INSERT INTO counters (name, value) VALUES (:a, 1)", {name});
  const auto row = first("SELECT value FROM counters WHERE name = :a", {name}, 1);
  return row ? row->number(0) : 0;
}

void Sql_Session::fail(const std::string& sql, const char* reason) {
  failed_ = true;
  D3_ERROR("Failed to run a statement on the server's database: %C, statement: %C\n",
           platform::cut_for_log(reason, 1024).c_str(), platform::cut_for_log(sql, 1024).c_str());
}

struct Database::Impl {
  std::string path;
  std::mutex write_mutex;
  std::unique_ptr<Sql_Session::Impl> writer;
  std::mutex readers_mutex;
  std::condition_variable reader_free;
  std::vector<std::unique_ptr<Sql_Session::Impl>> readers;

  std::unique_ptr<Sql_Session::Impl> take_reader() {
    std::unique_lock lock(readers_mutex);
    reader_free.wait(lock, [this] { return !readers.empty(); });
    std::unique_ptr<Sql_Session::Impl> taken = std::move(readers.back());
    readers.pop_back();
    return taken;
  }

  void give_back(std::unique_ptr<Sql_Session::Impl> reader) {
    const std::lock_guard lock(readers_mutex);
    readers.push_back(std::move(reader));
    reader_free.notify_one();
  }
};

Database::Database() : impl_(std::make_unique<Impl>()) {}
Database::~Database() = default;

bool Database::open(const std::string& path, std::string& error, unsigned readers) {
  const std::string real = platform::File_Root::current().real(path);
  try {
    impl_->path = path;
    impl_->writer = std::make_unique<Sql_Session::Impl>();
    impl_->writer->open(real);
    for (unsigned i = 0; i < readers; ++i) {
      impl_->readers.push_back(std::make_unique<Sql_Session::Impl>());
      impl_->readers.back()->open(real);
    }
  } catch (const std::exception& caught) {
    error = "cannot open the database " + path + ": " + caught.what() + "; check the directory's owner and free space";
    return false;
  }
  return upgrade_schema(*this, error);
}

bool Database::read(const std::function<void(Sql_Session&)>& work) {
  std::unique_ptr<Sql_Session::Impl> reader = impl_->take_reader();
  Sql_Session session(*reader);
  work(session);
  impl_->give_back(std::move(reader));
  return !session.failed();
}

bool Database::write(const std::function<bool(Sql_Session&)>& work) {
  const std::lock_guard lock(impl_->write_mutex);
  Sql_Session session(*impl_->writer);
  session.execute("BEGIN IMMEDIATE");
  if (session.failed()) return false;
  const bool wanted = work(session) && !session.failed();
  if (wanted) {
    session.execute("COMMIT");
    if (!session.failed()) return true;
  }
  Sql_Session undo(*impl_->writer);
  undo.execute("ROLLBACK");
  return false;
}

}  // namespace backupd
