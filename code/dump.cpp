// A readable dump of a compiled program: one line per instruction slot, in
// the order the slots follow each other through the chained code blocks,
// with its operands and its expression tree.  For tests and for users who
// want to see what their program became (vexor check --dump).
//
//   slot  opcode    operands
//      0  LINE      1: x = 2*3+1;
//      1  EVAL      (= x 7)
//      2  JUMPF     (> x 0) -> 5
//      3  FUNCTION  y = (* a x)
//      4  STOP
//
// Slots are numbered block by block (block k holds slots 500k to 500k+499),
// so the linking jump at the end of a full block shows as "JUMP -> 500".
// Trees are written in prefix form: constants with up to 17 significant
// digits, variables by name, elements as name[subscript], calls as
// NAME(arguments), strings quoted, and operators as (op left right).
#include <cstdio>
#include <cstring>

#include "code/code.h"
#include "builtins/builtins.h"

namespace vexor {

namespace {

const char* opname(uint8_t kind) {
  switch (kind) {
    case EN_ADD: return "+";
    case EN_SUB: return "-";
    case EN_MUL: return "*";
    case EN_DIV: return "/";
    case EN_MOD: return "%";
    case EN_POW: return "^";
    case EN_COMMA: return ",";
    case EN_NEGATE: return "neg";
    case EN_LT: return "<";
    case EN_LE: return "<=";
    case EN_GT: return ">";
    case EN_GE: return ">=";
    case EN_EQ: return "==";
    case EN_NE: return "!=";
    case EN_AND: return "&&";
    case EN_OR: return "||";
    case EN_NOT: return "!";
    case EN_ASSIGN: return "=";
    case EN_ADDASSIGN: return "+=";
    case EN_MULASSIGN: return "*=";
    case EN_DIVASSIGN: return "/=";
    case EN_SUBASSIGN: return "-=";
    case EN_PREINC: return "++pre";
    case EN_PREDEC: return "--pre";
    case EN_POSTINC: return "post++";
    case EN_POSTDEC: return "post--";
    case EN_COND: return "?";
    default: return nullptr;
  }
}

const char* funcname(uint8_t code) {
  for (const FuncEntry& f : functable)
    if (f.code == code) return f.name;
  return "?";
}

// A tree in prefix form, on an explicit stack of things still to write: a
// node (written, or expanded into its pieces) or a piece of text.
void tree(FILE* f, const ExprNode* root) {
  struct Item {
    const ExprNode* n;
    const char* text;  // written as it is when not null
  };
  WorkStack<Item> st;
  WorkStack<Item> pieces;
  st.push(Item{root, nullptr});
  while (!st.empty()) {
    Item it = st.top();
    st.pop();
    if (it.text) {
      std::fputs(it.text, f);
      continue;
    }
    const ExprNode* n = it.n;
    if (!n) {
      std::fputs("<none>", f);
      continue;
    }
    // The pieces that follow the node's head, pushed in reverse below.
    pieces.clear();
    switch (n->kind) {
      case EN_CONSTANT:
        std::fprintf(f, "%.17G", n->value);
        continue;
      case EN_VARIABLE:
        std::fputs(n->symbol ? n->symbol->name : "?", f);
        continue;
      case EN_ELEMENT:
        std::fprintf(f, "%s[", n->symbol ? n->symbol->name : "?");
        pieces.push(Item{n->right, nullptr});
        pieces.push(Item{nullptr, "]"});
        break;
      case EN_STRING:
        std::fputc('"', f);
        for (const char* p = n->text ? n->text : ""; *p; ++p) {
          if (*p == '\n')
            std::fputs("\\n", f);
          else if (*p == '"' || *p == '\\')
            std::fprintf(f, "\\%c", *p);
          else
            std::fputc(*p, f);
        }
        std::fputc('"', f);
        continue;
      case EN_CALL:
        std::fprintf(f, "%s(", funcname(n->funcode));
        for (const ExprNode* a = n->firstarg; a; a = a->nextarg) {
          if (a != n->firstarg) pieces.push(Item{nullptr, ", "});
          pieces.push(Item{a, nullptr});
        }
        pieces.push(Item{nullptr, ")"});
        break;
      case EN_END:
        std::fputs("<end>", f);
        continue;
      case EN_WORD:
        std::fprintf(f, "<word %s>", n->name);
        continue;
      default: {
        const char* op = opname(n->kind);
        if (!op) {
          std::fprintf(f, "<kind %d>", n->kind);
          continue;
        }
        std::fprintf(f, "(%s", op);
        if (n->kind == EN_COND) {
          pieces.push(Item{nullptr, " "});
          pieces.push(Item{n->cond, nullptr});
        }
        if (n->left) {
          pieces.push(Item{nullptr, " "});
          pieces.push(Item{n->left, nullptr});
        }
        if (n->right) {
          pieces.push(Item{nullptr, " "});
          pieces.push(Item{n->right, nullptr});
        }
        pieces.push(Item{nullptr, ")"});
        break;
      }
    }
    for (std::size_t k = pieces.size(); k > 0; --k) st.push(pieces[k - 1]);
  }
}

// The slot number of an instruction address, or -1 when it is in no block.
long slotof(const void* p) {
  long base = 0;
  for (OpSeg* s = opseghead; s; s = s->next, base += OPSEGSIZE) {
    const OpInstr* b = s->block;
    if (p >= static_cast<const void*>(b) && p < static_cast<const void*>(b + OPSEGSIZE))
      return base + (static_cast<const OpInstr*>(p) - b);
  }
  return -1;
}

}  // namespace

void dumpprog(FILE* f) {
  long base = 0;
  for (OpSeg* s = opseghead; s; s = s->next, base += OPSEGSIZE) {
    for (int i = 0; i < OPSEGSIZE; ++i) {
      const OpInstr* op = s->block + i;
      if (op == emitpos) return;  // nothing is emitted beyond this slot
      std::fprintf(f, "%6ld  ", base + i);
      switch (op->opcode) {
        case OP_LINE: {
          auto* l = static_cast<const SourceLine*>(op->operand1);
          if (l) {
            const char* t = l->text;
            while (*t == ' ' || *t == '\t') ++t;
            std::fprintf(f, "LINE      %d: %s\n", l->number, t);
          } else {
            std::fputs("LINE\n", f);
          }
          break;
        }
        case OP_EVAL:
          std::fputs("EVAL      ", f);
          tree(f, static_cast<const ExprNode*>(op->operand1));
          std::fputc('\n', f);
          break;
        case OP_JUMPF:
          std::fputs("JUMPF     ", f);
          tree(f, static_cast<const ExprNode*>(op->operand1));
          std::fprintf(f, " -> %ld\n", slotof(op->operand2));
          break;
        case OP_JUMP:
          std::fprintf(f, "JUMP      -> %ld\n", slotof(op->operand1));
          break;
        case OP_STOP:
          std::fputs("STOP\n", f);
          break;
        case OP_FUNCTION: {
          std::fputs("FUNCTION  ", f);
          auto* dep = static_cast<const Symbol*>(op->operand1);
          if (dep) std::fprintf(f, "%s = ", dep->name);
          tree(f, static_cast<const ExprNode*>(op->operand2));
          std::fputc('\n', f);
          break;
        }
        default:
          std::fprintf(f, "OP %d\n", op->opcode);
          break;
      }
    }
  }
}

}  // namespace vexor
