// Asking the database, in its own words where they differ from a file's.
#include "station/records/postgres.h"
#include "station/records/source.h"

namespace station::records
{

namespace
{

class DatabaseSource : public Source
{
  public:
    explicit DatabaseSource(const std::string &address) : database_(address) { database_.check(); }

    void interrupt() override { database_.interrupt(); }

  protected:
    void query(const std::string &sql, const std::vector<std::string> &parameters,
               const std::function<void(const Values &)> &row) override
    {
        visit(database_.query(sql, parameters), row);
    }
    void stream(const std::string &sql, const std::vector<std::string> &parameters,
                const std::function<void(const Values &)> &row) override
    {
        database_.stream(sql, parameters, [&](const pqxx::result &rows) { visit(rows, row); });
    }
    std::string time(const std::string &column) const override
    {
        return "to_char(" + column + ", 'YYYY-MM-DD\"T\"HH24:MI:SS.MS\"Z\"')";
    }
    std::string hour(const std::string &column) const override
    {
        return "date_bin('1 hour', " + column + ", 'epoch')";
    }
    std::string hex(const std::string &column) const override { return "encode(" + column + ", 'hex')"; }
    bool is_cut_by_id() const override { return true; }

  private:
    static void visit(const pqxx::result &rows, const std::function<void(const Values &)> &row)
    {
        for (const auto &each : rows) {
            Values values(each.size());
            for (const auto &field : each)
                if (!field.is_null())
                    values[field.num()] = std::string(field.c_str(), field.size());
            row(values);
        }
    }

    Postgres database_;
};

} // namespace

std::unique_ptr<Source> open_database_source(const std::string &address)
{
    return std::make_unique<DatabaseSource>(address);
}

} // namespace station::records
