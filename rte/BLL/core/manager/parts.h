// What stands behind BLLManager: four parts that know nothing of each other, each with its own guard, and the services
// that live and die with the manager. They are called in any order, and none is held while another is called.
#pragma once

#include "rte/BLL/core/bll_manager.h"
#include "rte/BLL/core/manager/board.h"
#include "rte/BLL/core/manager/entities.h"
#include "rte/BLL/core/manager/state.h"
#include "rte/BLL/core/manager/subscribers.h"
#include <atomic>

struct BLLManager::parts_t {
  explicit parts_t(const BLLManager& manager);

  board_t board;
  entityTable_t entities;
  lifeState_t state;
  subscribers_t subscribers;
  std::atomic<bool> durationsWanted = false;  // message "scripter_debug_time"
  RPCProxy rpcProxy;                          // its thread uses all above
  RabbitMqInterSoc interSocMq;
};
