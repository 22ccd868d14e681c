;;; vex-cpp.el --- vex-cpp's messages in compilation buffers  -*- lexical-binding: t -*-

;; Put the file where Emacs finds it and say (require 'vex-cpp).

;;; Commentary:

;; Two entries of `compilation-error-regexp-alist': one for the messages of --messages=gcc, one for
;; the program's own layout.  There the file's name stands on a line of its own, once for all
;; messages of that file, then the source line with its number, and below it a caret with the
;; message on one of its sides.  So the entry matches the caret's line and looks up for the rest.
;;
;; Columns of --messages=gcc are bytes, those of the own layout are columns of the screen, as Emacs
;; takes them unless `compilation-error-screen-columns' is nil.

;;; Code:

(require 'compile)

(defconst vex-cpp--own-file "^\\([^ \t\n].*\\):$"
  "The line that names the file of the source lines below it.")

(defconst vex-cpp--own-line "^ *\\([0-9]+\\):\t"
  "A source line with its number.")

(defun vex-cpp--above (pattern)
  "What the first group of PATTERN holds in the nearest line above the match."
  (save-excursion
    (save-match-data
      (goto-char (match-beginning 0))
      (when (re-search-backward pattern nil t)
        (match-string-no-properties 1)))))

(defun vex-cpp--file ()
  "The file of a message with a caret."
  (vex-cpp--above vex-cpp--own-file))

(defun vex-cpp--line ()
  "The line of a message with a caret."
  (let ((line (vex-cpp--above vex-cpp--own-line)))
    (and line (string-to-number line))))

(defun vex-cpp--column ()
  "The screen column of the caret, from 1; the tab that leads every line is not counted."
  (save-excursion
    (goto-char (or (match-beginning 1) (match-beginning 2)))
    (let ((tab-width 8))
      (- (current-column) 7))))

(defconst vex-cpp-error-regexp-alist
  `((vex-cpp
     "^\\(?:cpp\\|\\([^\n]+?\\):\\([0-9]+\\)\\(?::\\([0-9]+\\)\\)?\\): \
\\(?:\\(?:fatal \\)?error\\|\\(warning\\)\\|\\(note\\)\\): "
     1 2 3 (4 . 5))
    (vex-cpp-caret
     "^\t *\\(?:\\(\\^\\) \\)?([0-9]+) [^\n]*?\\(?: \\(\\^\\)\\)?\\(?: \\((warning)\\)\\)?$"
     vex-cpp--file vex-cpp--line vex-cpp--column (3))
    (vex-cpp-line
     "^\\([^ \t\n][^\n]*?\\): \\([0-9]+\\): \
\\(?:([0-9]+) [^\n]*?\\(?: \\((warning)\\)\\)?\\|\\(#\\(?:info\\|advisory\\): .*\\)\\)$"
     1 2 nil (3 . 4)))
  "Entries for `compilation-error-regexp-alist-alist'.")

(dolist (entry vex-cpp-error-regexp-alist)
  (add-to-list 'compilation-error-regexp-alist-alist entry)
  (add-to-list 'compilation-error-regexp-alist (car entry)))

(provide 'vex-cpp)
;;; vex-cpp.el ends here
