#pragma once

#include "recyclebin/forms/form.h"

/// The writers of all forms, each in a source of its own.
namespace hv {

void write_table(std::ostream &out, const listing &told, const form_options &options);
void write_stories(std::ostream &out, const listing &told, const form_options &options);
void write_json_lines(std::ostream &out, const listing &told,
                      const form_options &options);
void write_sqlite(std::ostream &out, const listing &told, const form_options &options);
void write_html(std::ostream &out, const listing &told, const form_options &options);

void write_body(std::ostream &out, const listing &told, const form_options &options);
void write_csv(std::ostream &out, const listing &told, const form_options &options);
void write_l2tcsv(std::ostream &out, const listing &told, const form_options &options);
void write_timesketch_csv(std::ostream &out, const listing &told,
                          const form_options &options);
void write_timesketch_json(std::ostream &out, const listing &told,
                           const form_options &options);

} // namespace hv
