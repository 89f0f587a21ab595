#include "platform/Snmp/TableHint.h"

#include <algorithm>

namespace Snmp {

namespace {

// The hint of the handler call in progress. Calls nest only through unrelated registrations
// (a handler that issues requests itself), so each call saves and restores the outer one.
struct HintSlot {
  // What the stock iterator puts into *loop_context on its first pass (the first request's
  // table_info): a get_first call that sees anything else is not the first pass.
  const void* firstPassContext = nullptr;
  BatchHint hint;
  bool exclusive = false;
  bool taken = false;
  // GET / SET_RESERVE1: the largest requested index. No row after it can match, so the walk
  // ends there instead of at the end of the table (the iterator only stops early once every
  // request has matched, which never happens when one names a missing row).
  Netsnmp_Next_Data_Point* getNext = nullptr;
  oid lastIndex[MAX_OID_LEN];
  size_t lastIndexLen = 0;
};

thread_local HintSlot* currentSlot = nullptr;

// Encodes index varbinds as the parser produced them. Not build_oid: for IpAddress it reads the
// octets as a host-order integer, while the parser stores them in network order, so on a
// little-endian host every parsed IpAddress index would come back reversed.
bool encodeParsedIndexes(const netsnmp_variable_list* v, oid* out, size_t capacity, size_t& len) {
  len = 0;
  auto put = [&](oid subId) {
    if (len == capacity) return false;
    out[len++] = subId;
    return true;
  };
  for (; v; v = v->next_variable) {
    switch (v->type) {
      case ASN_INTEGER:
      case ASN_COUNTER:
      case ASN_GAUGE:
      case ASN_TIMETICKS:
        if (!put(static_cast<oid>(*v->val.integer))) return false;
        break;
      case ASN_IPADDRESS:
        if (v->val_len != 4) return false;
        for (size_t i = 0; i < 4; ++i) {
          if (!put(v->val.string[i])) return false;
        }
        break;
      case ASN_OCTET_STR:
        if (!put(v->val_len)) return false;
        [[fallthrough]];
      case ASN_PRIV_IMPLIED_OCTET_STR:
        for (size_t i = 0; i < v->val_len; ++i) {
          if (!put(v->val.string[i])) return false;
        }
        break;
      default:
        return false;
    }
  }
  return true;
}

// True when the table helper parsed every index of the request from the start of its index
// OID: then its list is exactly what parsing that OID again would give. The helper also counts
// a last index it had to pad with zeros (an address or string cut short), and it masks
// oversized sub-identifiers; neither encodes back to a prefix of the index OID.
bool parsedInFull(const netsnmp_table_request_info& info,
                  const netsnmp_table_registration_info& table) {
  if (!info.indexes || table.number_indexes == 0 || info.number_indexes != table.number_indexes) {
    return false;
  }
  oid rebuilt[MAX_OID_LEN];
  size_t len = 0;
  // Capacity index_oid_len: a padded value needs more sub-identifiers than the request has.
  return encodeParsedIndexes(info.indexes, rebuilt, info.index_oid_len, len) &&
         std::equal(rebuilt, rebuilt + len, info.index_oid);
}

// The largest index among the unprocessed requests of an exact-match batch; false when none.
bool lastRequestedIndex(netsnmp_request_info* requests, oid* out, size_t& outLen) {
  const netsnmp_table_request_info* last = nullptr;
  for (netsnmp_request_info* r = requests; r; r = r->next) {
    if (r->processed) continue;
    const netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
    if (!info) continue;
    if (!last || snmp_oid_compare(info->index_oid, info->index_oid_len, last->index_oid,
                                  last->index_oid_len) > 0) {
      last = info;
    }
  }
  if (!last) return false;
  std::copy(last->index_oid, last->index_oid + last->index_oid_len, out);
  outLen = last->index_oid_len;
  return true;
}

// Stands in for the table's get_next_data_point during an exact-match batch: `vars` still
// holds the row just visited, and once that row is at or past the last requested index the
// walk is over.
netsnmp_variable_list* boundedGetNext(void** loopContext, void** dataContext,
                                      netsnmp_variable_list* vars, netsnmp_iterator_info* iinfo) {
  HintSlot* slot = currentSlot;
  if (vars) {
    oid row[MAX_OID_LEN];
    size_t rowLen = 0;
    if (build_oid_noalloc(row, MAX_OID_LEN, &rowLen, nullptr, 0, vars) == SNMPERR_SUCCESS &&
        snmp_oid_compare(row, rowLen, slot->lastIndex, slot->lastIndexLen) >= 0) {
      *dataContext = nullptr;
      return nullptr;
    }
  }
  return slot->getNext(loopContext, dataContext, vars, iinfo);
}

bool hintedMode(int mode) {
  return mode == MODE_GET || mode == MODE_GETNEXT
#ifndef NETSNMP_NO_WRITE_SUPPORT
         || mode == MODE_SET_RESERVE1
#endif
      ;
}

int tableHintHandler(netsnmp_mib_handler* handler, netsnmp_handler_registration* reginfo,
                     netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
  HintSlot slot;
  auto* iinfo = static_cast<netsnmp_iterator_info*>(handler->myvoid);
  if (reqinfo && iinfo && iinfo->table_reginfo && hintedMode(reqinfo->mode)) {
    // Mirrors the iterator's choice of the pointer it passes as the first-pass hint.
    for (netsnmp_request_info* r = requests; r; r = r->next) {
      if (netsnmp_table_request_info* info = netsnmp_extract_table_info(r)) {
        slot.firstPassContext = info;
        break;
      }
    }
    slot.hint = batchHint(requests, reqinfo->mode, *iinfo->table_reginfo);
    slot.exclusive = reqinfo->mode == MODE_GETNEXT;
    if (reqinfo->mode != MODE_GETNEXT && iinfo->get_next_data_point &&
        lastRequestedIndex(requests, slot.lastIndex, slot.lastIndexLen)) {
      slot.getNext = iinfo->get_next_data_point;
      iinfo->get_next_data_point = boundedGetNext;
    }
  }
  HintSlot* outer = currentSlot;
  currentSlot = &slot;
  const int rc = netsnmp_call_next_handler(handler, reginfo, reqinfo, requests);
  currentSlot = outer;
  if (slot.getNext) iinfo->get_next_data_point = slot.getNext;
  if (slot.hint.owned) snmp_free_varbind(slot.hint.indexes);
  return rc;
}

}  // namespace

TableHint tableHint(const void* loopContext) {
  HintSlot* slot = currentSlot;
  if (!slot || slot->taken) return {};
  slot->taken = true;
  if (!slot->hint.indexes || loopContext != slot->firstPassContext) return {};
  return {1, slot->hint.indexes, slot->exclusive};
}

BatchHint batchHint(netsnmp_request_info* requests, int mode,
                    const netsnmp_table_registration_info& table) {
  const netsnmp_table_request_info* best = nullptr;
  for (netsnmp_request_info* r = requests; r; r = r->next) {
    if (r->processed) continue;
    const netsnmp_table_request_info* info = netsnmp_extract_table_info(r);
    if (!info) continue;
    if (mode == MODE_GETNEXT && info->colnum > table.max_column) continue;
    if (!best || snmp_oid_compare(info->index_oid, info->index_oid_len, best->index_oid,
                                  best->index_oid_len) < 0) {
      best = info;
    }
  }
  if (!best || best->index_oid_len == 0 || !table.indexes) return {};
  // The usual case, a whole index (the previous answer, in a walk): the helper's own list,
  // without copying it. Sub-identifiers past the last index are ignored (a GETNEXT may carry
  // them); the row they extend is still a valid lower bound.
  if (parsedInFull(*best, table)) return {best->indexes, false};

  netsnmp_variable_list* vars = snmp_clone_varbind(table.indexes);
  if (!vars) return {};
  // Parsed from the index OID: the table helper leaves its list half-filled for a partial
  // index, padded for one cut short, and masked for oversized sub-identifiers.
  oid buf[MAX_OID_LEN];
  size_t left = best->index_oid_len;
  std::copy(best->index_oid, best->index_oid + left, buf);
  oid* cursor = buf;
  for (netsnmp_variable_list* v = vars; v; v = v->next_variable) {
    if (parse_one_oid_index(&cursor, &left, v, 0) != SNMPERR_SUCCESS) {
      snmp_free_varbind(vars);
      return {};
    }
  }
  // The parser masks oversized sub-identifiers, which can only lower a value; still, a hint
  // that sorted after its request would skip the answer, so check the round trip.
  oid rebuilt[MAX_OID_LEN];
  size_t rebuiltLen = 0;
  if (!encodeParsedIndexes(vars, rebuilt, MAX_OID_LEN, rebuiltLen) ||
      snmp_oid_compare(rebuilt, rebuiltLen, best->index_oid, best->index_oid_len) > 0) {
    snmp_free_varbind(vars);
    return {};
  }
  return {vars, true};
}

int registerTableIteratorWithHint(netsnmp_handler_registration* reginfo,
                                  netsnmp_iterator_info* iinfo, bool serialize) {
  if (!reginfo) return SNMP_ERR_GENERR;
  if (!iinfo || !iinfo->table_reginfo) {
    netsnmp_handler_registration_free(reginfo);
    return SNMP_ERR_GENERR;
  }
  iinfo->flags |= NETSNMP_ITERATOR_FLAG_SORTED;

  // Each inject prepends, so inject bottom-up: iterator, hint, serialize; the table and
  // bulk_to_next handlers go on top inside netsnmp_register_table.
  netsnmp_mib_handler* chain[3] = {netsnmp_get_table_iterator_handler(iinfo),
                                   netsnmp_create_handler(kTableHintHandlerName, tableHintHandler),
                                   serialize ? netsnmp_get_serialize_handler() : nullptr};
  if (chain[1]) chain[1]->myvoid = iinfo;
  for (size_t i = 0; i < 3; ++i) {
    if (i == 2 && !serialize) break;
    if (!chain[i] || netsnmp_inject_handler(reginfo, chain[i]) != SNMPERR_SUCCESS) {
      snmp_log(LOG_ERR, "could not build the hinted iterator chain for %s\n",
               reginfo->handlerName ? reginfo->handlerName : "?");
      for (size_t j = i; j < 3; ++j) {
        if (chain[j]) netsnmp_handler_free(chain[j]);
      }
      netsnmp_handler_registration_free(reginfo);
      return SNMP_ERR_GENERR;
    }
  }
#ifndef NETSNMP_FEATURE_REMOVE_STASH_CACHE
  reginfo->modes |= HANDLER_CAN_STASH;
#endif
  if (!iinfo->indexes && iinfo->table_reginfo->indexes) {
    iinfo->indexes = snmp_clone_varbind(iinfo->table_reginfo->indexes);
  }
  return netsnmp_register_table(reginfo, iinfo->table_reginfo);
}

}  // namespace Snmp
