// The code segment: statement-level instructions in chained blocks of
// OPSEGSIZE slots.  Each block holds at most OPSEGSIZE - 1 emitted
// instructions; its last slot is an OP_JUMP to the first slot of the next
// block, so the whole program is one path of slots and the interpreter
// never needs to know about blocks.  Slots never move once written, which
// lets the statement compiler patch jumps through the addresses emitop
// returns.
#include "code/code.h"

namespace vexor {

OpSeg* opseghead = nullptr;
OpSeg* opsegtail = nullptr;
OpInstr* progstart = nullptr;
OpInstr* emitpos = nullptr;
int32_t opcount = 0;

// newopseg: a new block ("opcodes") and its link record ("opseg"), appended
// at the tail of the chain.  Returns the block's first slot.
OpInstr* newopseg() {
  auto* block = static_cast<OpInstr*>(memcalloc(sizeof(OpInstr) * OPSEGSIZE, "opcodes"));
  auto* seg = static_cast<OpSeg*>(memalloc(sizeof(OpSeg), "opseg"));
  seg->next = nullptr;
  seg->block = block;
  if (opsegtail)
    opsegtail->next = seg;
  else
    opseghead = seg;
  opsegtail = seg;
  return block;
}

// emitop: stores one instruction at the emission position and returns its
// slot.  When the block then holds OPSEGSIZE - 1 instructions, its last slot
// receives the linking jump to a new block, where emission continues.
OpInstr* emitop(uint8_t opcode, void* operand1, void* operand2) {
  if (!emitpos) {
    // No program frame was opened: open one, so that emission cannot fail.
    progstart = emitpos = newopseg();
    opcount = 0;
  }
  OpInstr* slot = emitpos;
  slot->opcode = opcode;
  slot->operand1 = operand1;
  slot->operand2 = operand2;
  ++emitpos;
  ++opcount;
  if (opcount < OPSEGSIZE - 1) return slot;
  OpInstr* next = newopseg();
  opcount = 0;
  emitpos->opcode = OP_JUMP;
  emitpos->operand1 = next;
  emitpos->operand2 = nullptr;
  emitpos = next;
  return slot;
}

// freeopsegs: frees every block and its link record.  The expression trees
// the instructions carry are nodes, which live on the node list: compile()
// and the engine reset free them with freeallnodes when they free the code.
void freeopsegs() {
  OpSeg* seg = opseghead;
  while (seg) {
    OpSeg* next = seg->next;
    memfree(seg->block);
    memfree(seg);
    seg = next;
  }
  opseghead = opsegtail = nullptr;
  progstart = emitpos = nullptr;
  opcount = 0;
}

}  // namespace vexor
