#pragma once

#include <functional>
#include <string>

#include "job/job_definition.h"
#include "json/value.h"
#include "json/yajl_handler.h"
#include "scrt/object_creator_t.h"

/// The creators of the parsers for one kind of definition; null where the kind has none, and a document then must not
/// have that part. The source parser is a YAJL_Parser<Job_Source>, the options parser a YAJL_Parser<Job_Options>.
struct Job_Parser_Creators {
  Object_Creator_T<YAJL_Handler>* source = nullptr;
  Object_Creator_T<YAJL_Handler>* options = nullptr;
};

/// Says which parsers read a definition of this type and subtype.
using Job_Parser_Chooser = std::function<Job_Parser_Creators(Job_Definition_Type, Job_Definition_Subtype)>;

/// Reads a definition document. Null with a reason in `error` when it is not sound: a key is missing, unknown or of the
/// wrong type, or a parser refused its part. What the parsers made lives in the definition, so the module that made the
/// parsers must stay loaded as long as the definition. Never throws.
[[nodiscard]] Job_Definition_Ptr read_job_definition(const json_spirit::Value& document,
                                                     const Job_Parser_Chooser& choose, std::string& error);
