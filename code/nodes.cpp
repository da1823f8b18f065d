// Expression nodes: allocation and release.  Every live node is on one
// doubly linked list (newest first), so that all of them can be freed at
// once, and so that the parser can free exactly the nodes made since a
// given moment (everything in front of an older node on the list).
#include "code/code.h"

namespace vexor {

ExprNode* livenodes = nullptr;

ExprNode* newnode() {
  auto* n = static_cast<ExprNode*>(memcalloc(sizeof(ExprNode), "tok"));
  n->next = livenodes;
  if (livenodes) livenodes->prev = n;
  livenodes = n;
  return n;
}

// freenode: unlinks one node and frees it with its string text and the
// statement-level token it still holds.
void freenode(ExprNode* node) {
  if (!node) return;
  if (node->prev)
    node->prev->next = node->next;
  else if (livenodes == node)
    livenodes = node->next;
  if (node->next) node->next->prev = node->prev;
  if (node->text) memfree(node->text);
  if (node->token) freetok(node->token);
  memfree(node);
}

void freeallnodes() {
  while (livenodes) freenode(livenodes);
  exprreset();
}

// freetree: depth first through the operands and the argument list.  Trees
// that parseexpr returns are never deeper than MAXEXPRHEIGHT.
void freetree(ExprNode* tree) {
  if (!tree) return;
  freetree(tree->left);
  freetree(tree->right);
  freetree(tree->cond);
  ExprNode* a = tree->firstarg;
  while (a) {
    ExprNode* next = a->nextarg;
    freetree(a);
    a = next;
  }
  freenode(tree);
}

}  // namespace vexor
