#pragma once

// The one table_iterator implementation behind all thirteen tables. A table is
// a Traits class naming its Entry, Index and descriptor (TableDef); the
// net-snmp-named functions of each table are thin instantiations of MibTable<Traits>
// (PIMSNMP_MIB_TABLE below).

#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "PimSnmp/MibTable/ModuleRegistry.h"
#include "PimSnmp/MibTable/TableDecl.h"
#include "PimSnmp/MibTable/TableDef.h"
#include "PimSnmp/PimSnmp/PimMib.h"
#include "platform/Snmp/Config.h"
#include "platform/Snmp/Converters.h"
#include "platform/Snmp/Oid.h"
#include "platform/Snmp/RegVoidColl.h"
#include "platform/Snmp/TableCounters.h"
#include "platform/Snmp/TableHint.h"
#include "platform/SnmpUtil/SnmpUtil.h"

namespace Routing::Pim::Snmp {

// Text of a hint varbind's value for traces.
std::string hintValueText(const netsnmp_variable_list& v);
// "<type> <name>" of an entity found where another type was expected.
std::string entityText(const Ent::Entity& entity);

template <class Traits>
class MibTable {
 public:
  using Entry = typename Traits::Entry;
  using Index = typename Traits::Index;
  using Def = typename Traits::Def;
  using Coll = typename Def::Coll;
  using Iter = typename Coll::const_iterator;

  // One per walk: where the walk is and which version of the collection it saw.
  struct LoopContext {
    const Coll* coll;
    uint64_t version;
    Iter it;
    Ent::Ptr<const Entry> current;
  };
  // What the handler gets for a row: the row itself, with a reference held from
  // makeDataContext to freeDataContext, so a row removed meanwhile stays readable.
  using DataContext = const Entry;

  static const Def& def() { return Traits::def(); }
  static const Trace::Handle& tr() { return *def().trace; }
  static ::Snmp::TableCounters::Counts& counts() {
    static ::Snmp::TableCounters::Counts& c = ::Snmp::TableCounters::orderedIterCntrsOf(def().name);
    return c;
  }

  static void initialize(const Ent::Ptr<::Snmp::Config>& /*config*/, const std::string& context,
                         ModuleRegistry& registry) {
    const Def& d = def();
    const std::string regName = std::string(d.name) + "_" + context;
    netsnmp_handler_registration* reg = netsnmp_create_handler_registration(
        regName.c_str(), &MibTable::handler, d.tableOid.data(), d.tableOid.size(), d.modes);
    if (!reg) registrationFault("creating the registration of table " + regName, "reg");
    const std::string path = storePath(context);
    if (!context.empty()) reg->contextName = strdup(context.c_str());
    registry.registrationAdd(context, reg);

    Ent::Ptr<Ent::Entity> entity = SnmpUtil::getEntityRelative(path);
    if (!entity) {
      registrationFault(
          "Can not getEntityRelative(" + path + ") for table " + d.name + ". Is this path correct?",
          "pimMib");
    }
    Ent::Ptr<PimMib> pimMib = Ent::ptrCast<PimMib>(entity);
    if (!pimMib) {
      registrationFault(
          entityText(*entity) + " does not appear to be of type Routing::Pim::Snmp::PimMib.",
          "pimMib");
    }
    reg->my_reg_void = ::Snmp::RegVoidCollByContext::instance().addRegVoid(context, d.name, pimMib);

    auto* tableInfo = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    auto* columns = SNMP_MALLOC_TYPEDEF(netsnmp_column_info);
    if (!tableInfo || !columns) registrationFault("out of memory for table " + regName, "info");
    columns->isRange = 0;
    columns->list_count = static_cast<char>(d.validColumns.size());
    // Static descriptor data: net-snmp never frees valid_columns lists.
    columns->details.list = const_cast<unsigned int*>(d.validColumns.data());
    tableInfo->valid_columns = columns;
    for (const auto& part : d.indexes) {
      if (!snmp_varlist_add_variable(&tableInfo->indexes, nullptr, 0, part.asnType, nullptr, 0)) {
        TRACE_AT(tr(), 0, "Failed to set up {} in netsnmp table_info in context \"{}\"", part.name,
                 context);
        snmp_free_varbind(tableInfo->indexes);
        free(tableInfo);
        free(columns);
        // Abandoned: nothing of it may be left for unregister to find.
        registry.registrationDrop(context, reg);
        ::Snmp::RegVoidCollByContext::instance().delRegVoid(context, d.name);
        netsnmp_handler_registration_free(reg);
        return;
      }
    }
    tableInfo->min_column = d.minColumn;
    tableInfo->max_column = d.maxColumn;

    auto* iinfo = SNMP_MALLOC_TYPEDEF(netsnmp_iterator_info);
    if (!iinfo) registrationFault("out of memory for table " + regName, "iinfo");
    iinfo->get_first_data_point = &MibTable::getFirstDataPoint;
    iinfo->get_next_data_point = &MibTable::getNextDataPoint;
    iinfo->make_data_context = &MibTable::makeDataContext;
    iinfo->free_data_context = &MibTable::freeDataContext;
    iinfo->free_loop_context_at_end = &MibTable::freeLoopContextAtEnd;
    iinfo->myvoid = pimMib.get();
    iinfo->table_reginfo = tableInfo;
    // The registration frees the iterator info and table_info when it is unregistered.
    iinfo->flags |= NETSNMP_HANDLER_OWNS_IINFO;
    registry.columnInfoAdd(context, columns);

    // Sorted iteration, the batch-minimum hint and the serialize handler in one chain.
    const int result = ::Snmp::registerTableIteratorWithHint(reg, iinfo);
    if (result != 0) registrationFault("registering table " + regName, "result == 0");

    TRACE_AT(tr(), 2, "{} initializing oid {}", d.name, ::Snmp::oidToString(d.tableOid));
    TRACE_AT(tr(), 2, "Initialized table {} in context \"{}\"", d.name, context);
  }

  static netsnmp_variable_list* getFirstDataPoint(void** loopContext, void** dataContext,
                                                  netsnmp_variable_list* putIndexData,
                                                  netsnmp_iterator_info* iinfo) {
    const Def& d = def();
    const Trace::Handle& trace = *d.trace;
    const ::Snmp::TableHint hint = ::Snmp::tableHint(*loopContext);
    *dataContext = nullptr;
    const auto* store = static_cast<const PimMib*>(iinfo->myvoid);
    const Coll& coll = d.coll(*store);

    size_t given = 0;
    for (auto* v = hint.indexes; v; v = v->next_variable) ++given;
    TRACE_AT(trace, 2, "{}_get_first_data_point - *hint = {}, number_indexes = {}", d.name,
             hint.word, given);

    Iter start = coll.begin();
    bool hintMatched = false;
    if (hint.word != 1) {
      ++counts()[::Snmp::TableCounters::hintNone];
    } else if (Index index{}; !readHint(hint.indexes, given, index)) {
      ++counts()[::Snmp::TableCounters::hintBad];
    } else {
      // A walk's step from the row it was just given comes from the cursor, a GET's row and
      // other steps from the hash index; only a hint between rows descends the tree.
      auto it = cursorAt(coll, index);
      if (it != coll.end()) {
        ++counts()[::Snmp::TableCounters::cursorMatch];
      } else {
        it = coll.findIter(index);
      }
      if (it != coll.end()) {
        hintMatched = true;
        ++counts()[::Snmp::TableCounters::hintMatch];
        // A GETNEXT batch asks only for rows after the hint: a walk's step goes straight to
        // its answer instead of visiting the row it was asked from.
        if (hint.exclusive) ++it;
      } else {
        TRACE_AT(trace, 2, "{}_get_first_data_point - key '{}' not found in table", d.name, index);
        ++counts()[::Snmp::TableCounters::hintMiss];
        it = coll.lowerBound(index);
      }
      // Rows before the hint can answer neither a GET nor a GETNEXT of any request of the
      // batch, so the walk starts at the first row not less than the hint: an inexact hint
      // (a deleted row, an index between rows) costs one descent, not a scan.
      start = it;
    }

    cursor_ = Cursor{&coll, coll.serial(), coll.version(), start};
    // Always overwritten: the iterator frees whatever is left in the slot.
    LoopContext* lc = newLoopContext(coll, start);
    *loopContext = lc;
    TRACE_AT(trace, 2, "{}_get_first_data_point - allocated new loop context {}, hintMatched={}",
             d.name, fmt::ptr(lc), hintMatched);
    return iterationHelper(lc->current.get(), putIndexData);
  }

  static netsnmp_variable_list* getNextDataPoint(void** loopContext, void** dataContext,
                                                 netsnmp_variable_list* putIndexData,
                                                 netsnmp_iterator_info*) {
    const Def& d = def();
    const Trace::Handle& trace = *d.trace;
    auto* lc = static_cast<LoopContext*>(*loopContext);
    TRACE_AT(trace, 2, "{}_get_next_data_point - advancing loop context {} ; data context {}",
             d.name, fmt::ptr(lc), fmt::ptr(*dataContext));
    *dataContext = nullptr;
    if (lc->current) {
      if (lc->coll->version() == lc->version) {
        ++lc->it;
      } else {
        // Rows were added or removed mid-walk (the current one perhaps): go on after the
        // current key, which the counted reference keeps readable.
        lc->it = lc->coll->upperBound(lc->current->key());
        lc->version = lc->coll->version();
        ++counts()[::Snmp::TableCounters::walkResync];
      }
      lc->current = lc->it == lc->coll->end() ? nullptr : lc->it->get();
    }
    if (!lc->current) {
      TRACE_AT(trace, 2, "{}_get_next_data_point - at end of loop context {}", d.name,
               fmt::ptr(lc));
      ++counts()[::Snmp::TableCounters::walkEnd];
      return nullptr;
    }
    return iterationHelper(lc->current.get(), putIndexData);
  }

  static void* makeDataContext(void* loopContext, netsnmp_iterator_info*) {
    DataContext* dc = static_cast<LoopContext*>(loopContext)->current.get();
    if (dc) dc->ref();
    TRACE_AT(tr(), 2, "{}_make_data_context - allocated data context {}", def().name, fmt::ptr(dc));
    return const_cast<Entry*>(dc);
  }

  static void freeDataContext(void* dataContext, netsnmp_iterator_info*) {
    TRACE_AT(tr(), 2, "{}_free_data_context", def().name);
    if (dataContext) static_cast<DataContext*>(dataContext)->unref();
  }

  static void freeLoopContextAtEnd(void* loopContext, netsnmp_iterator_info*) {
    TRACE_AT(tr(), 2, "{}_free_loop_context_at_end", def().name);
    auto* lc = static_cast<LoopContext*>(loopContext);
    if (!lc) return;
    lc->current.reset();
    // One is kept for the next walk: walks of a table follow one another, so the allocator
    // is not needed on every request.
    if (!spareLoopContext_) {
      spareLoopContext_ = lc;
    } else {
      delete lc;
    }
  }

  static netsnmp_variable_list* iterationHelper(const Entry* entry, netsnmp_variable_list* vars) {
    const Def& d = def();
    const Trace::Handle& trace = *d.trace;
    if (!entry) {
      TRACE_AT(trace, 2, "{}IterationHelper - iterator is at end", d.name);
      return nullptr;
    }
    const Index& index = entry->key();
    if (trace.enabled(2)) {
      std::string text;
      for (const auto& part : d.indexes) {
        if (!text.empty()) text += ' ';
        text += part.traceName;
        text += part.text(index);
      }
      TRACE_AT(trace, 2, "{}IterationHelper - iterator has another value: {}", d.name, text);
    }
    // Index components are addresses of at most 20 octets and integers.
    uint8_t buf[64];
    netsnmp_variable_list* v = vars;
    for (const auto& part : d.indexes) {
      if (!v) break;
      const int n = part.encode(index, buf, sizeof buf);
      if (n < 0) {
        // Writers only store rows whose index encodes (IPv4 rows in IPv4 tables).
        TRACE_AT(trace, 0, "{}IterationHelper - cannot encode {} of {}", d.name, part.name,
                 part.text(index));
      }
      putIndexValue(v, part.asnType, buf, n < 0 ? 0 : static_cast<size_t>(n));
      v = v->next_variable;
    }
    return vars;
  }

  static int handler(netsnmp_mib_handler*, netsnmp_handler_registration*,
                     netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
    const Def& d = def();
    const Trace::Handle& trace = *d.trace;
    if (reqinfo->mode == MODE_GET) {
      TRACE_AT(trace, 2, "{}_handler: request mode {}", d.name, reqinfo->mode);
      for (netsnmp_request_info* request = requests; request; request = request->next) {
        if (request->processed) {
          TRACE_AT(trace, 2, "{}_handler: request {} already processed", d.name, fmt::ptr(request));
          continue;
        }
        auto* row = static_cast<DataContext*>(netsnmp_extract_iterator_context(request));
        if (!row) {
          // Left as is on purpose: the serialize handler gives us one request per call.
          TRACE_AT(trace, 2, "{}_handler: null data context in request", d.name);
          return SNMP_ERR_NOERROR;
        }
        netsnmp_table_request_info* info = netsnmp_extract_table_info(request);
        const ColumnDef<Entry>* col = info ? d.column(info->colnum) : nullptr;
        if (!col) {
          TRACE_AT(trace, 0, "{} invalid column {}", d.name, info ? info->colnum : 0);
          netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
          return SNMP_ERR_NOERROR;
        }
        TRACE_AT(trace, 2, "{}_handler: request GET for column {}, key {}", d.name, col->name,
                 row->key());
        uint8_t buf[1024];
        int n = ::Snmp::kConvertFailed;
        try {
          n = col->encode(*row, buf, sizeof buf);
        } catch (const std::exception& e) {
          // Nothing is thrown across the SNMP boundary: a column that cannot be read is a
          // failed conversion.
          TRACE_AT(trace, 0, "handle_{} - reading {} threw: {}", d.name, col->attr, e.what());
        }
        if (n < 0) {
          TRACE_AT(trace, 0, "handle_{} - {} failed for: {}", d.name, col->converter, col->attr);
          netsnmp_request_set_error(request, SNMP_ERR_GENERR);
          return SNMP_ERR_GENERR;
        }
        if (col->maxLength && static_cast<size_t>(n) > col->maxLength) {
          TRACE_AT(trace, 0, "handle_{} - entity /<sysname>/{} length out of range: {} ({}", d.name,
                   storePath(""), col->attr, n);
          netsnmp_request_set_error(request, SNMP_ERR_GENERR);
          return SNMP_ERR_GENERR;
        }
        snmp_set_var_typed_value(request->requestvb, col->asnType, buf, static_cast<size_t>(n));
      }
      return SNMP_ERR_NOERROR;
    }

    // Every SET phase: the tables are read-only.
    for (netsnmp_request_info* request = requests; request; request = request->next) {
      if (request->processed) continue;
      netsnmp_table_request_info* info = netsnmp_extract_table_info(request);
      const unsigned colnum = info ? info->colnum : 0;
      if (const ColumnDef<Entry>* col = d.column(colnum); !col) {
        TRACE_AT(trace, 0, "{} invalid column {}", d.name, colnum);
      } else if (col->ownSetMessage) {
        TRACE_AT(trace, 2, "{}_handler: SET is not configured for column {}", d.name, col->name);
      }
      netsnmp_request_set_error(request, SNMP_ERR_NOTWRITABLE);
      return SNMP_ERR_NOERROR;
    }
    return SNMP_ERR_NOERROR;
  }

 private:
  static inline LoopContext* spareLoopContext_ = nullptr;

  // Where the last request of this table started: the row a walk's next request names. In a
  // large table that row's hash slot is a cache miss, the row itself was just read.
  struct Cursor {
    const Coll* coll = nullptr;
    uint64_t serial = 0;
    uint64_t version = 0;
    Iter it{};
  };
  static inline Cursor cursor_{};

  // The cursor's position when it holds the row of `index`, else coll.end().
  static Iter cursorAt(const Coll& coll, const Index& index) {
    const Cursor& c = cursor_;
    if (c.coll != &coll || c.serial != coll.serial() || c.version != coll.version() ||
        c.it == coll.end()) {
      return coll.end();
    }
    const Index& key = (*c.it)->key();
    return key < index || index < key ? coll.end() : c.it;
  }

  static LoopContext* newLoopContext(const Coll& coll, Iter start) {
    LoopContext* lc = std::exchange(spareLoopContext_, nullptr);
    if (lc) {
      *lc = LoopContext{&coll, coll.version(), start, nullptr};
    } else {
      lc = new LoopContext{&coll, coll.version(), start, nullptr};
    }
    if (start != coll.end()) lc->current = start->get();
    return lc;
  }

  // Writes one index component, unless the varbind holds that value already: consecutive rows
  // share most components, and a walk's first row shares them with the request's own index.
  // Equal type, length and octets mean snmp_set_var_typed_value would store what is there.
  static void putIndexValue(netsnmp_variable_list* v, u_char type, const uint8_t* buf, size_t n) {
    if (n > 0 && v->type == type && v->val_len == n && v->val.string &&
        std::memcmp(v->val.string, buf, n) == 0) {
      return;
    }
    snmp_set_var_typed_value(v, type, buf, n);
  }

  // Builds the hint index from the request's index varbinds; false (after the
  // matching trace) when the walk must start at the first row instead.
  static bool readHint(const netsnmp_variable_list* v, size_t given, Index& index) {
    const Def& d = def();
    const Trace::Handle& trace = *d.trace;
    if (given < d.indexes.size()) {
      TRACE_AT(trace, 2, "{}_get_first_data_point - needed {} components, found only {}", d.name,
               d.indexes.size(), given);
      return false;
    }
    try {
      for (const auto& part : d.indexes) {
        if (v->type != part.asnType) {
          TRACE_AT(trace, 0, "hint for {} has incorrect type! Expecting {} but got {}", part.name,
                   static_cast<int>(part.asnType), static_cast<int>(v->type));
          return false;
        }
        TRACE_AT(trace, 2, "hint component {} is '{}'", part.name, hintValueText(*v));
        if (!part.read(*v, index)) {
          TRACE_AT(trace, 2, "hint for index {} of {} is out of range!", part.name, d.name);
          return false;
        }
        v = v->next_variable;
      }
    } catch (const std::exception& e) {
      TRACE_AT(trace, 2, "Bad hint for {}: {} ctor threw exception:{}", d.name, d.indexTypeName,
               e.what());
      return false;
    }
    return true;
  }
};

}  // namespace Routing::Pim::Snmp

// Defines the net-snmp-named functions of table T as MibTable<Traits>'s, all private to the
// module but initialize_table_T, which registers T in a context into `registry` (an
// expression yielding the module's ModuleRegistry&). Use at global scope.
#define PIMSNMP_MIB_TABLE(T, Traits, registry)                                                     \
  namespace {                                                                                      \
  using T##_table = ::Routing::Pim::Snmp::MibTable<Traits>;                                        \
  using T##_entry [[maybe_unused]] = T##_table::DataContext;                                       \
  [[maybe_unused]] constexpr auto& T##_handler = T##_table::handler;                               \
  [[maybe_unused]] constexpr auto& T##_get_first_data_point = T##_table::getFirstDataPoint;        \
  [[maybe_unused]] constexpr auto& T##_get_next_data_point = T##_table::getNextDataPoint;          \
  [[maybe_unused]] constexpr auto& T##_make_data_context = T##_table::makeDataContext;             \
  [[maybe_unused]] constexpr auto& T##_free_data_context = T##_table::freeDataContext;             \
  [[maybe_unused]] constexpr auto& T##_free_loop_context_at_end = T##_table::freeLoopContextAtEnd; \
  [[maybe_unused]] constexpr auto& T##IterationHelper = T##_table::iterationHelper;                \
  }                                                                                                \
  PIMSNMP_DECLARE_MIB_TABLE(T) {                                                                   \
    T##_table::initialize(config, context, registry);                                              \
  }
