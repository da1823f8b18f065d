// Walking an expression tree bottom up without recursion (trees may be far
// deeper than the machine stack would allow), for the parts of the code
// folder that change or measure whole trees.
#pragma once

#include "code/code.h"
#include "support/support.h"

namespace vexor {

// Calls visit(n) for every node whose operands have been visited, on an
// explicit stack.  A node for which take(n) is false is skipped with all
// below it.  The operands come in evaluation order: a call's arguments,
// otherwise left, right, then the condition of ?:.
template <class Take, class Visit>
void postorder(ExprNode* root, Take take, Visit visit) {
  struct At {
    ExprNode* n;
    bool done;  // the operands are visited: visit the node
  };
  WorkStack<At> st;
  WorkStack<ExprNode*> kids;
  if (root && take(root)) st.push(At{root, false});
  while (!st.empty()) {
    At at = st.top();
    st.pop();
    ExprNode* n = at.n;
    if (at.done) {
      visit(n);
      continue;
    }
    st.push(At{n, true});
    kids.clear();
    if (n->kind == EN_CALL) {
      for (ExprNode* a = n->firstarg; a; a = a->nextarg) kids.push(a);
    } else {
      if (n->left) kids.push(n->left);
      if (n->right) kids.push(n->right);
      if (n->cond) kids.push(n->cond);
    }
    for (std::size_t k = kids.size(); k > 0; --k)
      if (take(kids[k - 1])) st.push(At{kids[k - 1], false});
  }
}

}  // namespace vexor
